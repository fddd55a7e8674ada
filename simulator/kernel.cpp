#include "simulator/kernel.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <utility>

#include "vd6281.h"

namespace spectralsim {

namespace {

// The phone's nodes and files, and the requests that its kernel answers. They are written here a
// second time, so that a wrong one in the library is found.
constexpr char kFactoryFilePath[] = "/mnt/vendor/persist/camera/ials_fac_test";
constexpr unsigned long kReadRegisters = 0xC1085201;
constexpr unsigned long kRouteSetup = 0x4B24;
constexpr unsigned long kSetup = 0xC0104B22;
constexpr unsigned long kTerminate = 0xC0104B23;
constexpr unsigned long kRouteTerminate = 0x4B19;
constexpr char kUnparsedFilePath[] = "/data/unparsed_flicker_data";
constexpr char kDumpFilePath[] = "/data/flicker_data.wav";
constexpr std::uint32_t kMostRegisters = 32;
constexpr unsigned long kHighestRegisterWrite = 0xFFFF;  // address byte, value byte
constexpr mode_t kDumpFileMode = 0644;
// How often a reader of the tunnel looks whether a stream has been set up.
constexpr std::int64_t kIdleWaitNs = 10 * kNsPerMs;

std::atomic<Kernel*> g_current{nullptr};

// Parses a text as the kernel does: it has to consist of one number, which a newline may follow.
std::optional<unsigned long> number_of(const char* text) {
  if (text[0] < '0' || text[0] > '9') return std::nullopt;
  char* end = nullptr;
  const unsigned long number = std::strtoul(text, &end, 0);
  if (*end == '\n') ++end;
  if (*end != '\0') return std::nullopt;
  return number;
}

long fail_with(int error) {
  errno = error;
  return -1;
}

long fail_with(const Fault& fault) {
  errno = fault.error();
  return fault.result();
}

bool is_dump_file(Node node) { return node == Node::kUnparsedFile || node == Node::kDumpFile; }

// Waits by the phone's clock, unless the descriptor has O_NONBLOCK.
class WaitingByClock : public Waiting {
 public:
  WaitingByClock(Clock* clock, int fd) : m_clock(clock), m_fd(fd) {}
  bool may_wait() override { return (syscall(SYS_fcntl, m_fd, F_GETFL) & O_NONBLOCK) == 0; }
  bool wait_ns(std::int64_t duration_ns) override {
    m_clock->sleep_ns(duration_ns);
    return true;
  }

 private:
  Clock* m_clock;
  int m_fd;
};

}  // namespace

Kernel* Kernel::current() { return g_current.load(std::memory_order_acquire); }

void Kernel::set_current(Kernel* kernel) { g_current.store(kernel, std::memory_order_release); }

Node Kernel::node_of_path(const char* path) {
  struct Place {
    const char* path;
    Node node;
  };
  static constexpr Place kPlaces[] = {
      {"/dev/vd6281", Node::kDevice},
      {"/sys/devices/platform/soc/ac4b000.qcom,cci/ac4b000.qcom,cci:st,iridel@20/iridel_enable",
       Node::kEnable},
      {"/sys/devices/platform/soc/ac4b000.qcom,cci/ac4b000.qcom,cci:st,iridel@20/iridel_read_byte",
       Node::kReadByte},
      {"/sys/devices/platform/soc/ac4b000.qcom,cci/ac4b000.qcom,cci:st,iridel@20/iridel_write_byte",
       Node::kWriteByte},
      {kFactoryFilePath, Node::kFactoryFile},
      {"/dev/sensor_tunnel", Node::kTunnel},
      {kUnparsedFilePath, Node::kUnparsedFile},
      {kDumpFilePath, Node::kDumpFile}};
  if (path == nullptr) return Node::kNone;
  for (const Place& place : kPlaces) {
    if (std::strcmp(place.path, path) == 0) return place.node;
  }
  return Node::kNone;
}

Node Kernel::node_of_fd(int fd) const {
  if (fd < 0 || static_cast<std::size_t>(fd) >= kMaxFd) return Node::kNone;
  return static_cast<Node>(
      m_node_of_fd[static_cast<std::size_t>(fd)].load(std::memory_order_acquire));
}

std::optional<Fault> Kernel::strike(Call call, Node node, int address) {
  std::optional<Fault> struck;
  for (Fault& fault : m_faults) {
    if (fault.strikes(call, node, address) && !struck) struck = fault;
  }
  if (!struck && m_fault_source) struck = m_fault_source(call, node, address);
  if (struck && struck->delay_ms() > 0) {
    m_mutex.unlock();
    m_clock.sleep_ns(struck->delay_ms() * kNsPerMs);
    m_mutex.lock();
  }
  if (struck && !struck->fails()) return std::nullopt;
  return struck;
}

Event Kernel::event_on(Call call, int fd) const {
  Event event;
  event.call = call;
  event.node = node_of_fd(fd);
  event.fd = fd;
  return event;
}

long Kernel::finish(Event event, long result) {
  const int error = errno;
  event.result = result;
  event.error = result < 0 ? error : 0;
  if (m_keep_trace) m_trace.push_back(std::move(event));
  errno = error;
  return result;
}

Kernel::~Kernel() {
  for (const auto& [node, fd] : m_backing) syscall(SYS_close, fd);
}

// Returns the descriptor of the file behind a node, which is in memory or, for a dump file, in the
// data folder. It holds what is written to a dump file, or what is read from the factory file;
// behind the other nodes it stays empty.
int Kernel::backing_file(Node node) {
  const auto known = m_backing.find(node);
  if (known != m_backing.end()) return known->second;
  int fd = -1;
  if (is_dump_file(node) && !m_data_folder.empty()) {
    const std::string path = m_data_folder + "/" + name_of(node);
    fd = static_cast<int>(
        syscall(SYS_openat, AT_FDCWD, path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kDumpFileMode));
  } else {
    fd = static_cast<int>(syscall(SYS_memfd_create, name_of(node), MFD_CLOEXEC));
  }
  if (fd >= 0) m_backing[node] = fd;
  return fd;
}

// Opens the file behind the node. The phone's descriptors are real ones, so that no other file of
// the process gets the same number.
int Kernel::open_descriptor(Node node, int flags) {
  const int backing = backing_file(node);
  if (backing < 0) return -1;
  const std::string path = "/proc/self/fd/" + std::to_string(backing);
  const int kept = O_CLOEXEC | O_NONBLOCK | (is_dump_file(node) ? O_TRUNC | O_APPEND : 0);
  const int fd =
      static_cast<int>(syscall(SYS_openat, AT_FDCWD, path.c_str(), O_RDWR | (flags & kept), 0));
  if (fd < 0) return -1;
  if (static_cast<std::size_t>(fd) >= kMaxFd) {
    syscall(SYS_close, fd);
    return static_cast<int>(fail_with(EMFILE));
  }
  m_mode_of_fd[static_cast<std::size_t>(fd)] = static_cast<std::uint8_t>(flags & O_ACCMODE);
  m_node_of_fd[static_cast<std::size_t>(fd)].store(static_cast<std::uint8_t>(node),
                                                   std::memory_order_release);
  return fd;
}

// Whether the descriptor was opened for `mode`, which is O_RDONLY or O_WRONLY.
bool Kernel::allows(int fd, int mode) const {
  const int opened = m_mode_of_fd[static_cast<std::size_t>(fd)];
  return opened == O_RDWR || opened == mode;
}

int Kernel::open(Node node, int flags) {
  const Entry entry(m_mutex);
  Event event;
  event.call = Call::kOpen;
  event.node = node;
  event.close_on_exec = (flags & O_CLOEXEC) != 0;
  if (const auto fault = strike(Call::kOpen, node, -1)) {
    fail_with(*fault);
  } else if (m_absent.count(node) != 0 || (node == Node::kFactoryFile && !m_has_factory_file)) {
    fail_with(ENOENT);
  } else {
    event.fd = open_descriptor(node, flags);
  }
  const int fd = event.fd;
  return static_cast<int>(finish(std::move(event), fd));
}

int Kernel::note_close(int fd) {
  const Entry entry(m_mutex);
  Event event = event_on(Call::kClose, fd);
  const auto fault = strike(Call::kClose, event.node, -1);
  return static_cast<int>(finish(std::move(event), fault ? fail_with(*fault) : 0));
}

void Kernel::forget(int fd) {
  const Entry entry(m_mutex);
  m_node_of_fd[static_cast<std::size_t>(fd)].store(0, std::memory_order_release);
  for (auto stream = m_streams.begin(); stream != m_streams.end();) {
    stream = stream->second == fd ? m_streams.erase(stream) : std::next(stream);
  }
}

int Kernel::close(int fd) {
  const int result = note_close(fd);
  const int error = errno;
  forget(fd);
  syscall(SYS_close, fd);
  errno = error;
  return result;
}

// A read of the tunnel waits until the hub has sent something. The lock is released meanwhile. On
// virtual time nobody else could set a stream up in the meantime, so that the read of a tunnel
// without one returns 0.
long Kernel::serve_tunnel(void* buffer, std::size_t size, Waiting* waiting) {
  const auto sample = [this](std::int64_t from_ns, std::int64_t to_ns) {
    return m_chip.flicker_sample(from_ns, to_ns);
  };
  for (;;) {
    const std::size_t count = m_hub.read(buffer, size, m_clock.now_ns(), sample);
    if (count > 0 || m_hub.has_ended()) return static_cast<long>(count);
    const bool streams = m_hub.streams();
    if (!streams && m_clock.is_virtual()) return 0;
    if (!waiting->may_wait()) return fail_with(EAGAIN);
    const std::int64_t due_ns = m_hub.next_due_ns() - m_clock.now_ns();
    m_mutex.unlock();
    const bool waited = waiting->wait_ns(streams ? std::max<std::int64_t>(due_ns, 0) : kIdleWaitNs);
    m_mutex.lock();
    if (!waited) return fail_with(EINTR);
  }
}

// Reads the text of a sysfs attribute from the descriptor's position on, and moves the position.
long Kernel::serve_attribute(int fd, const std::string& text, void* buffer, std::size_t size) {
  const auto position = static_cast<std::size_t>(syscall(SYS_lseek, fd, 0L, SEEK_CUR));
  if (position >= text.size()) return 0;
  const std::size_t count = text.copy(static_cast<char*>(buffer), size, position);
  syscall(SYS_lseek, fd, static_cast<long>(count), SEEK_CUR);
  return static_cast<long>(count);
}

long Kernel::serve_read(const Event& event, void* buffer, std::size_t size, Waiting* waiting) {
  if (const auto fault = strike(Call::kRead, event.node, -1)) {
    if (fault->result() < 0) return fail_with(*fault);
    size = std::min(size, static_cast<std::size_t>(fault->result()));
    if (size == 0) return 0;
  }
  switch (event.node) {
    case Node::kFactoryFile:
    case Node::kUnparsedFile:
    case Node::kDumpFile:
      return syscall(SYS_read, event.fd, buffer, size);
    case Node::kTunnel:
      return serve_tunnel(buffer, size, waiting);
    case Node::kEnable:
      return serve_attribute(event.fd, m_chip.powered() ? "1\n" : "0\n", buffer, size);
    default:
      return fail_with(EINVAL);
  }
}

ssize_t Kernel::read(int fd, void* buffer, std::size_t size, Waiting* waiting) {
  const Entry entry(m_mutex);
  if (!allows(fd, O_RDONLY)) return fail_with(EBADF);
  WaitingByClock by_clock(&m_clock, fd);
  Event event = event_on(Call::kRead, fd);
  const long result = serve_read(event, buffer, size, waiting != nullptr ? waiting : &by_clock);
  return finish(std::move(event), result);
}

bool Kernel::is_readable(int fd, std::int64_t* again_in_ns) {
  const Entry entry(m_mutex);
  if (node_of_fd(fd) != Node::kTunnel || m_hub.has_ended()) return true;
  const std::int64_t due_ns = m_hub.next_due_ns() - m_clock.now_ns();
  *again_in_ns = m_hub.streams() ? std::max<std::int64_t>(due_ns, 0) : kIdleWaitNs;
  return m_hub.has_pending() || (m_hub.streams() && due_ns <= 0);
}

long Kernel::take_write(Event* event) {
  const auto number = number_of(event->text.c_str());
  const bool is_register = event->node == Node::kWriteByte;
  if (!number || *number > (is_register ? kHighestRegisterWrite : 1)) return fail_with(EINVAL);
  if (is_register) {
    event->address = static_cast<int>(*number >> 8);
    event->value = static_cast<int>(*number & 0xFF);
  }
  const auto fault = strike(Call::kWrite, event->node, event->address);
  if (fault && fault->result() < 0) return fail_with(*fault);
  if (!is_register) {
    m_chip.power(*number == 1);
  } else if (!m_chip.write(static_cast<std::uint8_t>(event->address),
                           static_cast<std::uint8_t>(event->value))) {
    return fail_with(EIO);
  }
  const auto size = static_cast<long>(event->text.size());
  return fault ? std::min(fault->result(), size) : size;
}

ssize_t Kernel::write(int fd, const void* buffer, std::size_t size) {
  const Entry entry(m_mutex);
  if (!allows(fd, O_WRONLY)) return fail_with(EBADF);
  if (size == 0) return 0;
  Event event = event_on(Call::kWrite, fd);
  if (is_dump_file(event.node)) return syscall(SYS_write, fd, buffer, size);
  event.text.assign(static_cast<const char*>(buffer), size);
  const bool writable = event.node == Node::kWriteByte || event.node == Node::kEnable;
  const long result = writable ? take_write(&event) : fail_with(EINVAL);
  // Only what reads as a file has a position that counts.
  if (result > 0 && event.node == Node::kEnable) syscall(SYS_lseek, fd, result, SEEK_CUR);
  return finish(std::move(event), result);
}

long Kernel::read_registers(VD6281_Transfer_t* block, Event* event) {
  if (block->count < 1 || block->count > kMostRegisters) return fail_with(EINVAL);
  event->address = static_cast<int>(block->reg[0]);
  event->count = static_cast<int>(block->count);
  if (const auto fault = strike(Call::kIoctl, Node::kDevice, event->address)) {
    return fail_with(*fault);
  }
  for (std::uint32_t i = 0; i < block->count; ++i) {
    const auto address = static_cast<std::uint8_t>(block->reg[i]);
    std::optional<std::uint32_t> value;
    if (m_register_source && m_chip.powered()) value = m_register_source(address);
    if (!value) value = m_chip.read(address);
    if (!value) return fail_with(EIO);
    block->data[i] = *value;
    if (block->count == 1) event->value = static_cast<int>(*value & 0xFF);
  }
  return 0;
}

long Kernel::tunnel_request(unsigned long request, const std::uint32_t* words, Event* event) {
  event->address = static_cast<int>(request & 0xFF);
  const bool has_words = request == kSetup || request == kTerminate;
  if (has_words) {
    char text[32];
    std::snprintf(text, sizeof text, " %x/%u", words[1], words[3]);
    event->text = text;
  }
  if (const auto fault = strike(Call::kIoctl, Node::kTunnel, event->address)) {
    return fail_with(*fault);
  }
  switch (request) {
    case kRouteSetup:
    case kRouteTerminate:
      m_hub.route(request == kRouteSetup);
      return 0;
    case kSetup:
    case kTerminate:
      break;
    default:
      return fail_with(ENOTTY);
  }
  if (words[0] != 0 || words[2] != 1) return fail_with(EINVAL);
  const bool known = request == kSetup ? m_hub.set_up(words[1], words[3], m_clock.now_ns())
                                       : m_hub.terminate(words[1], words[3]);
  return known ? 0 : fail_with(EINVAL);
}

int Kernel::ioctl(int fd, unsigned long request, void* argument) {
  const Entry entry(m_mutex);
  Event event = event_on(Call::kIoctl, fd);
  long result = -1;
  if (event.node == Node::kTunnel) {
    result = tunnel_request(request, static_cast<const std::uint32_t*>(argument), &event);
  } else if (event.node == Node::kDevice && request == kReadRegisters) {
    result = read_registers(static_cast<VD6281_Transfer_t*>(argument), &event);
  } else {
    fail_with(ENOTTY);
  }
  if (event.address < 0) {
    char text[32];
    std::snprintf(text, sizeof text, "%lx", request);
    event.text = text;
  }
  return static_cast<int>(finish(std::move(event), result));
}

void Kernel::add_stream(const void* stream, int fd) {
  const Entry entry(m_mutex);
  m_streams[stream] = fd;
}

int Kernel::fd_of_stream(const void* stream) const {
  const Entry entry(m_mutex);
  const auto known = m_streams.find(stream);
  return known != m_streams.end() ? known->second : -1;
}

std::optional<std::string> Kernel::load_analysis(const char* path) {
  const Entry entry(m_mutex);
  Event event;
  event.call = Call::kDlopen;
  event.node = Node::kAnalysisLibrary;
  event.text = path;
  const auto fault = strike(Call::kDlopen, event.node, -1);
  finish(std::move(event), fault ? fail_with(*fault) : 0);
  if (fault) return std::nullopt;
  return m_analysis.value_or(path);
}

std::optional<std::string> Kernel::analysis() const {
  const Entry entry(m_mutex);
  return m_analysis;
}

void Kernel::log(int priority, const char* tag, const char* text) {
  const Entry entry(m_mutex);
  if (!m_keep_trace) return;
  Event event;
  event.call = Call::kLog;
  event.priority = priority;
  event.tag = tag;
  event.text = text;
  finish(std::move(event), 0);
}

}  // namespace spectralsim
