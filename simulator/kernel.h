#pragma once

// The kernel's side of the phone: its nodes and files by descriptor, the faults and the trace. The
// preempted system calls end here.

#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "simulator/chip.h"
#include "simulator/clock.h"
#include "simulator/fault.h"
#include "simulator/trace.h"
#include "vd6281.h"

namespace spectralsim {

class Kernel {
 public:
  Kernel() : m_chip(&m_clock) {}

  // The kernel of the phone that is plugged in, or null.
  static Kernel* current();
  static void set_current(Kernel* kernel);

  Clock& clock() { return m_clock; }
  Chip& chip() { return m_chip; }

  static Node node_of_path(const char* path);
  Node node_of_fd(int fd) const;

  // As the system calls of these names: a result, or -1 with errno set.
  int open(Node node);
  int close(int fd);
  ssize_t read(int fd, void* buffer, std::size_t size);
  ssize_t write(int fd, const void* buffer, std::size_t size);
  int ioctl(int fd, unsigned long request, void* argument);
  // The stream of the file behind this descriptor is closed by the C library itself.
  void forget(int fd);

  void log(int priority, const char* tag, const char* text);

  // Everything below acts under the kernel's lock, from any thread.
  void add_fault(const Fault& fault);
  void clear_faults();
  void set_present(Node node, bool present);
  void set_file(std::optional<std::string> content);
  void set_model(std::optional<std::string> model);
  std::optional<std::string> model() const;
  Trace trace() const;
  void clear_trace();
  void keep_trace(bool on);
  int open_descriptors() const;

 private:
  static constexpr std::size_t kMaxFd = 4096;

  // The fault that strikes this access, if one does.
  const Fault* strike(Call call, Node node, int address);
  Event event_on(Call call, int fd) const;
  // Traces the event with its result, and returns that with errno as it was.
  long finish(Event event, long result);
  int open_descriptor(Node node);
  long serve_read(const Event& event, void* buffer, std::size_t size);
  long take_write(Event* event);
  long read_registers(VD6281_Transfer_t* block, Event* event);

  mutable std::mutex m_mutex;
  Clock m_clock;
  Chip m_chip;
  std::array<std::atomic<std::uint8_t>, kMaxFd> m_node_of_fd = {};
  std::vector<Fault> m_faults;
  std::set<Node> m_absent;
  std::optional<std::string> m_factory_file;
  std::optional<std::string> m_model;
  bool m_keep_trace = true;
  Trace m_trace;
};

}  // namespace spectralsim
