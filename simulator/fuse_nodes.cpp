#include "simulator/fuse_nodes.h"

#include <fcntl.h>
#include <fuse_lowlevel.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <regex>
#include <stdexcept>
#include <thread>

#include "simulator/kernel.h"
#include "simulator/pollers.h"

namespace spectralsim {

namespace {

constexpr double kForever = 1e9;  // seconds for which the kernel may keep what it knows of a file
constexpr unsigned int kMostThreads = 1000;  // a thread serves each read that waits
constexpr fuse_ino_t kFirstFile = FUSE_ROOT_ID + 1;
constexpr off_t kAttributeSize = 4096;  // as sysfs has it

// What the file system has besides the nodes of the kernel.
enum class Kind { kNode, kLibrary, kLog };

struct File {
  Kind kind;
  Node node;
  mode_t mode;
  const char* path;
};

// The files, their modes and their places (docs/integration.md, "Permissions").
constexpr char kAttributes[] =
    "/sys/devices/platform/soc/ac4b000.qcom,cci/ac4b000.qcom,cci:st,iridel@20/";
constexpr File kFiles[] = {
    {Kind::kNode, Node::kDevice, 0660, "/dev/vd6281"},
    {Kind::kNode, Node::kTunnel, 0640, "/dev/sensor_tunnel"},
    {Kind::kNode, Node::kEnable, 0660, nullptr},
    {Kind::kNode, Node::kReadByte, 0220, nullptr},
    {Kind::kNode, Node::kWriteByte, 0220, nullptr},
    {Kind::kNode, Node::kFactoryFile, 0640, "/mnt/vendor/persist/camera/ials_fac_test"},
    {Kind::kNode, Node::kUnparsedFile, 0660, "/data/unparsed_flicker_data"},
    {Kind::kNode, Node::kDumpFile, 0660, "/data/flicker_data.wav"},
    {Kind::kLibrary, Node::kAnalysisLibrary, 0644, "/vendor/lib64/libzelk_flicker.so"},
    {Kind::kLog, Node::kNone, 0222, kLogNodePath}};

std::string name_of_file(const File& file) {
  return file.kind == Kind::kLog ? "log" : name_of(file.node);
}

std::string path_of_file(const File& file) {
  return file.path != nullptr ? file.path : std::string(kAttributes) + name_of(file.node);
}

const File* file_of(fuse_ino_t inode) {
  const bool known = inode >= kFirstFile && inode - kFirstFile < std::size(kFiles);
  return known ? &kFiles[inode - kFirstFile] : nullptr;
}

// Replies to a request with an error. A fault may give a result without an errno; the kernel takes
// the number itself for one then.
void reply_failure(fuse_req_t request, long result) {
  fuse_reply_err(request, errno != 0 ? errno : static_cast<int>(-result));
}

// A wait of a request that a signal to the waiting thread interrupts.
class InterruptibleWait : public Waiting {
 public:
  InterruptibleWait(fuse_req_t request, bool may_wait) : m_request(request), m_may_wait(may_wait) {
    fuse_req_interrupt_func(request, on_interrupt, this);
  }
  ~InterruptibleWait() override { fuse_req_interrupt_func(m_request, nullptr, nullptr); }

  bool may_wait() override { return m_may_wait; }

  bool wait_ns(std::int64_t duration_ns) override {
    std::unique_lock<std::mutex> lock(m_mutex);
    return !m_wake.wait_for(lock, std::chrono::nanoseconds(duration_ns),
                            [this] { return m_interrupted; });
  }

 private:
  static void on_interrupt(fuse_req_t, void* self) {
    auto* const wait = static_cast<InterruptibleWait*>(self);
    const std::lock_guard<std::mutex> lock(wait->m_mutex);
    wait->m_interrupted = true;
    wait->m_wake.notify_all();
  }

  fuse_req_t m_request;
  bool m_may_wait;
  std::mutex m_mutex;
  std::condition_variable m_wake;
  bool m_interrupted = false;
};

// A line in logcat's brief format, as platform/host/ writes it.
void log_line(Kernel* kernel, const std::string& line) {
  static const std::regex form("([VDIWEF?])/(.*)\\( *[0-9]+\\): ([^]*?)\n?");
  constexpr char kPriorityLetters[] = "??VDIWEF";
  std::smatch part;
  if (!std::regex_match(line, part, form)) return;
  const char* letter = std::strchr(kPriorityLetters, *part[1].first);
  kernel->log(static_cast<int>(letter - kPriorityLetters), part[2].str().c_str(),
              part[3].str().c_str());
}

}  // namespace

class FuseNodes::Service {
 public:
  Service(Phone* phone, Owner owner);
  ~Service();
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  const std::vector<Place>& places() const { return m_places; }
  void serve(int fuse_fd);

 private:
  static Service* of(fuse_req_t request) {
    return static_cast<Service*>(fuse_req_userdata(request));
  }
  static Kernel* kernel_of(fuse_req_t request) { return of(request)->m_kernel; }
  static int fd_of(const fuse_file_info* info) { return static_cast<int>(info->fh); }

  struct stat attributes_of(fuse_ino_t inode) const;
  off_t size_of(const File& file) const;

  // The operations of the file system, each for one request of the kernel.
  static void on_lookup(fuse_req_t request, fuse_ino_t parent, const char* name);
  static void on_getattr(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info);
  static void on_setattr(fuse_req_t request, fuse_ino_t inode, struct stat* wanted, int which,
                         fuse_file_info* info);
  static void on_open(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info);
  static void on_read(fuse_req_t request, fuse_ino_t inode, size_t size, off_t offset,
                      fuse_file_info* info);
  static void on_write(fuse_req_t request, fuse_ino_t inode, const char* bytes, size_t size,
                       off_t offset, fuse_file_info* info);
  static void on_ioctl(fuse_req_t request, fuse_ino_t inode, unsigned int number, void* argument,
                       fuse_file_info* info, unsigned int flags, const void* in, size_t in_size,
                       size_t out_size);
  static void on_poll(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info,
                      fuse_pollhandle* handle);
  static void on_flush(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info);
  static void on_release(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info);

  Kernel* m_kernel;
  Owner m_owner;
  std::vector<Place> m_places;
  int m_library = -1;
  fuse_session* m_session = nullptr;
  std::thread m_loop;

  std::unique_ptr<Pollers> m_pollers = std::make_unique<Pollers>();  // ends before the session
};

FuseNodes::Service::Service(Phone* phone, Owner owner)
    : m_kernel(&phone->kernel()), m_owner(owner) {
  for (const File& file : kFiles) {
    if (file.kind == Kind::kLog || m_kernel->is_present(file.node)) {
      m_places.push_back({name_of_file(file), path_of_file(file)});
    }
  }
  if (const auto analysis = m_kernel->analysis()) {
    m_library = open(analysis->c_str(), O_RDONLY | O_CLOEXEC);
    if (m_library < 0) {
      throw std::invalid_argument("cannot open the analysis library " + *analysis + ": " +
                                  std::strerror(errno));
    }
  }
}

FuseNodes::Service::~Service() {
  if (m_session != nullptr) {
    fuse_session_exit(m_session);
    // Closing the connection ends the loop's reads.
    fuse_session_unmount(m_session);
    m_loop.join();
    m_pollers.reset();
    fuse_session_destroy(m_session);
  }
  if (m_library >= 0) close(m_library);
}

off_t FuseNodes::Service::size_of(const File& file) const {
  struct stat known = {};
  switch (file.node) {
    case Node::kFactoryFile:
    case Node::kUnparsedFile:
    case Node::kDumpFile:
      return static_cast<off_t>(m_kernel->dumped(file.node).size());
    case Node::kEnable:
    case Node::kReadByte:
    case Node::kWriteByte:
      return kAttributeSize;
    case Node::kAnalysisLibrary:
      return fstat(m_library, &known) == 0 ? known.st_size : 0;
    default:
      return 0;
  }
}

struct stat FuseNodes::Service::attributes_of(fuse_ino_t inode) const {
  struct stat attributes = {};
  attributes.st_ino = inode;
  attributes.st_nlink = 1;
  const File* file = file_of(inode);
  if (file == nullptr) {
    attributes.st_mode = S_IFDIR | 0755;
    return attributes;
  }
  attributes.st_mode = S_IFREG | file->mode;
  attributes.st_size = size_of(*file);
  const bool is_node = file->kind == Kind::kNode;
  attributes.st_uid = is_node ? m_owner.user : getuid();
  attributes.st_gid = is_node ? m_owner.group : getgid();
  return attributes;
}

void FuseNodes::Service::on_lookup(fuse_req_t request, fuse_ino_t, const char* name) {
  for (std::size_t i = 0; i < std::size(kFiles); ++i) {
    if (name_of_file(kFiles[i]) != name) continue;
    fuse_entry_param entry = {};
    entry.ino = kFirstFile + i;
    entry.attr = of(request)->attributes_of(entry.ino);
    entry.entry_timeout = kForever;
    fuse_reply_entry(request, &entry);
    return;
  }
  fuse_reply_err(request, ENOENT);
}

void FuseNodes::Service::on_getattr(fuse_req_t request, fuse_ino_t inode, fuse_file_info*) {
  const struct stat attributes = of(request)->attributes_of(inode);
  fuse_reply_attr(request, &attributes, 0.0);
}

// Only the size of a dump file can be changed. A device ignores a new size, as when a shell opens
// it for ">".
void FuseNodes::Service::on_setattr(fuse_req_t request, fuse_ino_t inode, struct stat* wanted,
                                    int which, fuse_file_info* info) {
  const File* file = file_of(inode);
  if (file == nullptr ||
      (which & (FUSE_SET_ATTR_MODE | FUSE_SET_ATTR_UID | FUSE_SET_ATTR_GID)) != 0) {
    fuse_reply_err(request, EPERM);
    return;
  }
  const bool is_dump = file->node == Node::kUnparsedFile || file->node == Node::kDumpFile;
  if ((which & FUSE_SET_ATTR_SIZE) != 0 && is_dump && info != nullptr &&
      ftruncate(fd_of(info), wanted->st_size) != 0) {
    fuse_reply_err(request, errno);
    return;
  }
  on_getattr(request, inode, info);
}

void FuseNodes::Service::on_open(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info) {
  const File& file = *file_of(inode);
  errno = 0;
  if (file.kind == Kind::kLibrary) {
    info->fh = static_cast<std::uint64_t>(of(request)->m_library);
    info->keep_cache = 1;
    // The kernel asks for the whole path: a program that loads the library opens it.
    if (!kernel_of(request)->load_analysis(file.path)) {
      reply_failure(request, -1);
      return;
    }
  } else {
    info->direct_io = 1;
    info->nonseekable = file.node == Node::kDevice || file.node == Node::kTunnel ? 1 : 0;
  }
  if (file.kind == Kind::kNode) {
    const int fd = kernel_of(request)->open(file.node, info->flags);
    if (fd < 0) {
      reply_failure(request, fd);
      return;
    }
    info->fh = static_cast<std::uint64_t>(fd);
  }
  fuse_reply_open(request, info);
}

void FuseNodes::Service::on_read(fuse_req_t request, fuse_ino_t inode, size_t size, off_t offset,
                                 fuse_file_info* info) {
  const File& file = *file_of(inode);
  std::string bytes(size, '\0');
  errno = 0;
  long count = 0;
  if (file.kind == Kind::kLibrary) {
    count = pread(fd_of(info), bytes.data(), size, offset);
  } else if (file.kind == Kind::kNode) {
    InterruptibleWait wait(request, (info->flags & O_NONBLOCK) == 0);
    lseek(fd_of(info), offset, SEEK_SET);
    count = kernel_of(request)->read(fd_of(info), bytes.data(), size, &wait);
  }
  if (count < 0) {
    reply_failure(request, count);
  } else {
    fuse_reply_buf(request, bytes.data(), static_cast<std::size_t>(count));
  }
}

void FuseNodes::Service::on_write(fuse_req_t request, fuse_ino_t inode, const char* bytes,
                                  size_t size, off_t offset, fuse_file_info* info) {
  if (file_of(inode)->kind == Kind::kLog) {
    log_line(kernel_of(request), std::string(bytes, size));
    fuse_reply_write(request, size);
    return;
  }
  errno = 0;
  lseek(fd_of(info), offset, SEEK_SET);
  const long count = kernel_of(request)->write(fd_of(info), bytes, size);
  if (count < 0) {
    reply_failure(request, count);
  } else {
    fuse_reply_write(request, static_cast<std::size_t>(count));
  }
}

// The kernel passes on what the request's number says of its argument: its size, in and out.
void FuseNodes::Service::on_ioctl(fuse_req_t request, fuse_ino_t inode, unsigned int number, void*,
                                  fuse_file_info* info, unsigned int, const void* in,
                                  size_t in_size, size_t out_size) {
  if (file_of(inode)->kind != Kind::kNode) {
    fuse_reply_err(request, ENOTTY);
    return;
  }
  std::string block(std::max(in_size, out_size), '\0');
  if (in_size > 0) std::memcpy(block.data(), in, in_size);
  errno = 0;
  const int result = kernel_of(request)->ioctl(fd_of(info), number, block.data());
  if (result < 0) {
    reply_failure(request, result);
  } else {
    fuse_reply_ioctl(request, result, block.data(), out_size);
  }
}

void FuseNodes::Service::on_poll(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info,
                                 fuse_pollhandle* handle) {
  constexpr unsigned int kAlways = POLLIN | POLLOUT | POLLRDNORM | POLLWRNORM;
  unsigned int events = kAlways;
  std::int64_t again_in_ns = 0;
  const bool is_tunnel = file_of(inode)->node == Node::kTunnel;
  if (is_tunnel) {
    events = kernel_of(request)->is_readable(fd_of(info), &again_in_ns) ? POLLIN | POLLRDNORM : 0;
  }
  if (handle != nullptr && events == 0) {
    of(request)->m_pollers->wake_later(handle, std::chrono::nanoseconds(again_in_ns));
  } else if (handle != nullptr) {
    fuse_pollhandle_destroy(handle);
  }
  fuse_reply_poll(request, events);
}

// A close(2) waits for its flush, and so has a result and a place in the trace.
void FuseNodes::Service::on_flush(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info) {
  errno = 0;
  if (file_of(inode)->kind == Kind::kNode && kernel_of(request)->note_close(fd_of(info)) < 0) {
    reply_failure(request, -1);
  } else {
    fuse_reply_err(request, 0);
  }
}

void FuseNodes::Service::on_release(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info) {
  if (file_of(inode)->kind == Kind::kNode) {
    kernel_of(request)->forget(fd_of(info));
    close(fd_of(info));
  }
  fuse_reply_err(request, 0);
}

void FuseNodes::Service::serve(int fuse_fd) {
  fuse_lowlevel_ops operations = {};
  operations.lookup = on_lookup;
  operations.getattr = on_getattr;
  operations.setattr = on_setattr;
  operations.open = on_open;
  operations.read = on_read;
  operations.write = on_write;
  operations.ioctl = on_ioctl;
  operations.poll = on_poll;
  operations.flush = on_flush;
  operations.release = on_release;
  char name[] = "spectralsim";
  char* arguments[] = {name, nullptr};
  fuse_args empty = FUSE_ARGS_INIT(1, arguments);
  m_session = fuse_session_new(&empty, &operations, sizeof operations, this);
  fuse_opt_free_args(&empty);
  const std::string mounted = "/dev/fd/" + std::to_string(fuse_fd);
  if (m_session == nullptr || fuse_session_mount(m_session, mounted.c_str()) != 0) {
    throw std::runtime_error("libfuse does not take the mount of the nodes");
  }
  m_loop = std::thread([this] {
    fuse_loop_config* const how = fuse_loop_cfg_create();
    fuse_loop_cfg_set_max_threads(how, kMostThreads);
    fuse_session_loop_mt(m_session, how);
    fuse_loop_cfg_destroy(how);
  });
}

FuseNodes::FuseNodes(Phone* phone, Owner owner)
    : m_service(std::make_unique<Service>(phone, owner)) {}
FuseNodes::~FuseNodes() = default;
const std::vector<Place>& FuseNodes::places() const { return m_service->places(); }
void FuseNodes::serve(int fuse_fd) { m_service->serve(fuse_fd); }

std::string FuseNodes::mount_data(int fuse_fd) {
  return "fd=" + std::to_string(fuse_fd) + ",rootmode=40000,user_id=" + std::to_string(getuid()) +
         ",group_id=" + std::to_string(getgid()) + ",default_permissions,allow_other";
}

}  // namespace spectralsim
