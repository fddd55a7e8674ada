#pragma once

// The kernel's side of the phone: its nodes and files by descriptor, the faults and the trace. Both
// fronts serve a program's system calls by it: the preempted calls of libc (preempt_files.cpp) and
// the kernel's own nodes (fuse_nodes.cpp).

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

// How a read of the tunnel waits for the hub.
class Waiting {
 public:
  Waiting() = default;
  virtual ~Waiting() = default;
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;

  // Whether the reader may wait at all; false for a descriptor with O_NONBLOCK.
  virtual bool may_wait() = 0;
  // Waits for this much of the phone's time. Returns false if a signal interrupted the wait.
  virtual bool wait_ns(std::int64_t duration_ns) = 0;
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

  // Like the system calls of the same names, these return a result, or -1 and set errno. `flags`
  // are those of open(2). An operation that the flags of the descriptor do not allow fails with
  // EBADF and is not in the trace, because the kernel does not pass it on to the node; neither is
  // a write of nothing. The data of the dump files is not in the trace either.
  int open(Node node, int flags);
  int close(int fd);
  ssize_t read(int fd, void* buffer, std::size_t size, Waiting* waiting = nullptr);
  ssize_t write(int fd, const void* buffer, std::size_t size);
  int ioctl(int fd, unsigned long request, void* argument);
  // Whether a read of the descriptor would return at once, and if not, in how many nanoseconds it
  // is worth asking again.
  bool is_readable(int fd, std::int64_t* again_in_ns);
  // Adds a close to the trace, with its result, but leaves the descriptor as it is.
  int note_close(int fd);
  // Forgets the node behind the descriptor but leaves the descriptor open, because the C library
  // closes it itself.
  void forget(int fd);

  // The descriptor behind a stream that the simulator has made. The C library does not know the
  // descriptor of such a stream.
  void add_stream(const void* stream, int fd);
  int fd_of_stream(const void* stream) const;  // -1 for any other stream

  void log(int priority, const char* tag, const char* text);

  // Returns the file to load in place of the analysis library's path: the one that set_analysis
  // chose, or `path` itself if it chose none. If a fault strikes, it returns nothing and sets
  // errno.
  std::optional<std::string> load_analysis(const char* path);
  // The file that set_analysis chose, if any.
  std::optional<std::string> analysis() const;

  // The functions below may be called from any thread.
  void add_fault(const Fault& fault);
  void set_fault_source(FaultSource source);
  void set_register_source(RegisterSource source);
  void clear_faults();
  void set_present(Node node, bool present);
  void set_file(const std::string& content);
  void set_model(std::optional<std::string> model);
  void set_analysis(std::optional<std::string> path);  // empty: the path itself
  // Keeps the dump files in this folder, which exists. Without a folder they exist in memory only.
  void set_data_folder(const std::string& folder);
  std::string dumped(Node node) const;
  bool is_present(Node node) const;
  std::optional<std::string> model() const;
  Trace trace() const;
  void clear_trace();
  void keep_trace(bool on);
  bool keeps_trace() const;
  int open_descriptors() const;

 private:
  static constexpr std::size_t kMaxFd = 4096;

  // Returns the fault that strikes this access, after the fault's delay. Returns nothing if no
  // fault strikes it or the fault is only a delay. The lock is released during the delay.
  std::optional<Fault> strike(Call call, Node node, int address);
  Event event_on(Call call, int fd) const;
  // Adds the event with its result to the trace and returns the result. It does not change errno.
  long finish(Event event, long result);
  int open_descriptor(Node node, int flags);
  bool allows(int fd, int mode) const;
  long serve_read(const Event& event, void* buffer, std::size_t size, Waiting* waiting);
  static long serve_attribute(int fd, const std::string& text, void* buffer, std::size_t size);
  long serve_tunnel(void* buffer, std::size_t size, Waiting* waiting);
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
  std::array<std::uint8_t, kMaxFd> m_mode_of_fd = {};  // O_RDONLY, O_WRONLY or O_RDWR
  std::vector<Fault> m_faults;
  FaultSource m_fault_source;
  RegisterSource m_register_source;
  std::set<Node> m_absent;
  bool m_has_factory_file = false;
  std::optional<std::string> m_model;
  std::optional<std::string> m_analysis;
  std::string m_data_folder;
  Hub m_hub;
  std::map<const void*, int> m_streams;
  std::map<Node, int> m_backing;  // descriptors of the files behind the nodes
  bool m_keep_trace = true;
  Trace m_trace;
};

}  // namespace spectralsim
