#pragma once

// The kernel's side of the phone: its nodes and files by descriptor, the faults and the trace. It
// serves the preempted system calls.

#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "simulator/chip.h"
#include "simulator/clock.h"
#include "simulator/fault.h"
#include "simulator/hub.h"
#include "simulator/trace.h"
#include "vd6281.h"

namespace spectralsim {

// Marks this thread as running inside the simulator while the object exists, so that a test can
// distinguish the simulator's activity from the library's.
class Inside {
 public:
  Inside() { ++depth(); }
  ~Inside() { --depth(); }
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;

  static int& depth() {
    static thread_local int depth = 0;
    return depth;
  }
};

class Kernel {
 public:
  Kernel() : m_chip(&m_clock) {}
  ~Kernel();
  Kernel(const Kernel&) = delete;
  Kernel& operator=(const Kernel&) = delete;

  // The kernel of the phone that is plugged in, or null.
  static Kernel* current();
  static void set_current(Kernel* kernel);

  Clock& clock() { return m_clock; }
  Chip& chip() { return m_chip; }
  Hub& hub() { return m_hub; }

  static Node node_of_path(const char* path);
  Node node_of_fd(int fd) const;

  // Like the system calls of the same names, these return a result, or -1 and set errno.
  int open(Node node, bool close_on_exec, bool truncate = false);
  int close(int fd);
  ssize_t read(int fd, void* buffer, std::size_t size);
  ssize_t write(int fd, const void* buffer, std::size_t size);
  int ioctl(int fd, unsigned long request, void* argument);
  // Closes the phone's file but leaves the descriptor, which the C library closes itself. Returns
  // the result of the close.
  int forget(int fd);

  // The descriptor behind a stream that the simulator has made. The C library does not know the
  // descriptor of such a stream.
  void add_stream(const void* stream, int fd);
  int fd_of_stream(const void* stream) const;  // -1 for any other stream

  void log(int priority, const char* tag, const char* text);

  // Returns the file to load in place of the analysis library's path: the one that set_analysis
  // chose, or `path` itself if it chose none. If a fault strikes, the file returned does not exist.
  std::string load_analysis(const char* path);

  // The functions below may be called from any thread.
  void add_fault(const Fault& fault);
  void set_fault_source(FaultSource source);
  void set_register_source(RegisterSource source);
  void clear_faults();
  void set_present(Node node, bool present);
  void set_file(const std::string& content);
  void set_model(std::optional<std::string> model);
  void set_analysis(std::optional<std::string> path);  // empty: the path itself
  std::string dumped(Node node) const;
  std::optional<std::string> model() const;
  Trace trace() const;
  void clear_trace();
  void keep_trace(bool on);
  int open_descriptors() const;

 private:
  static constexpr std::size_t kMaxFd = 4096;

  // Returns the fault that strikes this access, after the fault's delay. Returns nothing if no
  // fault strikes it or the fault is only a delay. The lock is released during the delay.
  std::optional<Fault> strike(Call call, Node node, int address);
  Event event_on(Call call, int fd) const;
  // Adds the event with its result to the trace and returns the result. It does not change errno.
  long finish(Event event, long result);
  int open_descriptor(Node node, bool truncate);
  long serve_read(const Event& event, void* buffer, std::size_t size);
  long serve_tunnel(void* buffer, std::size_t size);
  int backing_file(Node node);
  long take_write(Event* event);
  long read_registers(VD6281_Transfer_t* block, Event* event);
  long tunnel_request(unsigned long request, const std::uint32_t* words, Event* event);

  // Holds the kernel's lock and marks the thread as inside the simulator.
  struct Entry {
    explicit Entry(std::mutex& mutex) : lock(mutex) {}
    Inside inside;
    std::lock_guard<std::mutex> lock;
  };

  mutable std::mutex m_mutex;
  Clock m_clock;
  Chip m_chip;
  std::array<std::atomic<std::uint8_t>, kMaxFd> m_node_of_fd = {};
  std::vector<Fault> m_faults;
  FaultSource m_fault_source;
  RegisterSource m_register_source;
  std::set<Node> m_absent;
  bool m_has_factory_file = false;
  std::optional<std::string> m_model;
  std::optional<std::string> m_analysis;
  Hub m_hub;
  std::map<const void*, int> m_streams;
  std::map<Node, int> m_backing;  // descriptors of the files behind the nodes
  bool m_keep_trace = true;
  Trace m_trace;
};

}  // namespace spectralsim
