// Preempts the file calls of libc. Calls on the phone's nodes go to the simulated kernel; all
// others pass through.

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

#include "simulator/kernel.h"
#include "simulator/next.h"

#define SIM_PREEMPTS __attribute__((visibility("default")))

using spectralsim::Kernel;
using spectralsim::Next;
using spectralsim::Node;

namespace {

// Opens the path on the phone and returns the result; returns nothing if the path is not the
// phone's.
std::optional<int> open_on_phone(const char* path, int flags) {
  Kernel* kernel = Kernel::current();
  const Node node = Kernel::node_of_path(path);
  if (kernel == nullptr || node == Node::kNone) return std::nullopt;
  return kernel->open(node, flags);
}

ssize_t read_stream(void* cookie, char* buffer, size_t size) {
  return read(*static_cast<const int*>(cookie), buffer, size);
}

int close_stream(void* cookie) {
  const std::unique_ptr<const int> fd(static_cast<const int*>(cookie));
  return static_cast<int>(syscall(SYS_close, *fd));
}

// Makes a stream that reads the descriptor through read(). The C library reads its own streams by
// system calls that cannot be preempted.
FILE* stream_of(Kernel* kernel, int fd, const char* mode) {
  cookie_io_functions_t functions = {};
  functions.read = read_stream;
  functions.close = close_stream;
  auto cookie = std::make_unique<int>(fd);
  FILE* stream = fopencookie(cookie.get(), mode, functions);
  if (stream == nullptr) return nullptr;
  static_cast<void>(cookie.release());  // close_stream frees it
  kernel->add_stream(stream, fd);
  return stream;
}

// The flags of open(2) for a mode of fopen(3).
int flags_of(const char* mode) {
  const bool updates = std::strchr(mode, '+') != nullptr;
  int flags = mode[0] == 'r' ? O_RDONLY : O_WRONLY;
  if (updates) flags = O_RDWR;
  if (mode[0] == 'w') flags |= O_TRUNC;
  if (mode[0] == 'a') flags |= O_APPEND;
  if (std::strchr(mode, 'e') != nullptr) flags |= O_CLOEXEC;
  return flags;
}

std::optional<FILE*> fopen_on_phone(const char* path, const char* mode) {
  Kernel* kernel = Kernel::current();
  const Node node = Kernel::node_of_path(path);
  if (kernel == nullptr || node == Node::kNone) return std::nullopt;
  const spectralsim::Inside inside;
  const int fd = kernel->open(node, flags_of(mode));
  if (fd < 0) return nullptr;
  const bool is_read = node == Node::kTunnel || node == Node::kFactoryFile;
  return is_read ? stream_of(kernel, fd, mode) : fdopen(fd, mode);
}

// The kernel of the phone that this descriptor belongs to, or null.
Kernel* kernel_of(int fd) {
  Kernel* kernel = Kernel::current();
  return kernel != nullptr && kernel->node_of_fd(fd) != Node::kNone ? kernel : nullptr;
}

bool takes_mode(int flags) { return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE; }

// Opens the path on the phone or, if it is not the phone's, calls `pass(mode)` with the mode that
// follows the flags in the arguments.
template <typename Pass>
int open_or_pass(const char* path, int flags, va_list arguments, Pass pass) {
  const mode_t mode = takes_mode(flags) ? va_arg(arguments, mode_t) : 0;
  const auto fd = open_on_phone(path, flags);
  return fd ? *fd : pass(mode);
}

}  // namespace

extern "C" {

SIM_PREEMPTS int open(const char* path, int flags, ...) {
  static Next<int(const char*, int, ...)> next("open");
  va_list arguments;
  va_start(arguments, flags);
  const int fd =
      open_or_pass(path, flags, arguments, [&](mode_t mode) { return next(path, flags, mode); });
  va_end(arguments);
  return fd;
}

SIM_PREEMPTS int open64(const char* path, int flags, ...) {
  static Next<int(const char*, int, ...)> next("open64");
  va_list arguments;
  va_start(arguments, flags);
  const int fd =
      open_or_pass(path, flags, arguments, [&](mode_t mode) { return next(path, flags, mode); });
  va_end(arguments);
  return fd;
}

SIM_PREEMPTS int openat(int directory, const char* path, int flags, ...) {
  static Next<int(int, const char*, int, ...)> next("openat");
  va_list arguments;
  va_start(arguments, flags);
  const int fd = open_or_pass(path, flags, arguments,
                              [&](mode_t mode) { return next(directory, path, flags, mode); });
  va_end(arguments);
  return fd;
}

// Programs that are built with _FORTIFY_SOURCE call these in place of open and open64.
SIM_PREEMPTS int __open_2(const char* path, int flags) { return open(path, flags); }
SIM_PREEMPTS int __open64_2(const char* path, int flags) { return open64(path, flags); }

SIM_PREEMPTS FILE* fopen(const char* path, const char* mode) {
  static Next<FILE*(const char*, const char*)> next("fopen");
  const auto stream = fopen_on_phone(path, mode);
  return stream ? *stream : next(path, mode);
}

SIM_PREEMPTS FILE* fopen64(const char* path, const char* mode) {
  static Next<FILE*(const char*, const char*)> next("fopen64");
  const auto stream = fopen_on_phone(path, mode);
  return stream ? *stream : next(path, mode);
}

SIM_PREEMPTS int fileno(FILE* stream) noexcept {
  static Next<int(FILE*)> next("fileno");
  const Kernel* kernel = Kernel::current();
  const int fd = kernel != nullptr ? kernel->fd_of_stream(stream) : -1;
  return fd >= 0 ? fd : next(stream);
}

SIM_PREEMPTS int fclose(FILE* stream) {
  static Next<int(FILE*)> next("fclose");
  const int fd = stream != nullptr ? fileno(stream) : -1;
  Kernel* kernel = kernel_of(fd);
  const int result = kernel != nullptr ? kernel->note_close(fd) : 0;
  const int error = errno;
  if (kernel != nullptr) kernel->forget(fd);
  const int closed = next(stream);
  if (result == 0) return closed;
  errno = error;
  return EOF;
}

SIM_PREEMPTS int close(int fd) {
  static Next<int(int)> next("close");
  Kernel* kernel = kernel_of(fd);
  return kernel != nullptr ? kernel->close(fd) : next(fd);
}

SIM_PREEMPTS ssize_t read(int fd, void* buffer, size_t size) {
  static Next<ssize_t(int, void*, size_t)> next("read");
  Kernel* kernel = kernel_of(fd);
  return kernel != nullptr ? kernel->read(fd, buffer, size) : next(fd, buffer, size);
}

SIM_PREEMPTS ssize_t write(int fd, const void* buffer, size_t size) {
  static Next<ssize_t(int, const void*, size_t)> next("write");
  Kernel* kernel = kernel_of(fd);
  return kernel != nullptr ? kernel->write(fd, buffer, size) : next(fd, buffer, size);
}

SIM_PREEMPTS int ioctl(int fd, unsigned long request, ...) noexcept {
  static Next<int(int, unsigned long, ...)> next("ioctl");
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  Kernel* kernel = kernel_of(fd);
  return kernel != nullptr ? kernel->ioctl(fd, request, argument) : next(fd, request, argument);
}

}  // extern "C"
