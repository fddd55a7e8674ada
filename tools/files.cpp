#include "tools/files.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <stdexcept>

namespace spectralsensorctl {

namespace {

std::optional<struct stat> status_of(const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) return std::nullopt;
  return status;
}

// The path behind symbolic links, or the path itself if there is no such file.
std::string resolved(const std::string& path) {
  char target[PATH_MAX];
  return realpath(path.c_str(), target) != nullptr ? target : path;
}

std::string folder_of(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

// The permissions of a file that is created here without any particular ones.
mode_t usual_mode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

}  // namespace

void cannot_write(const std::string& path, const std::string& why) {
  throw std::runtime_error("cannot write " + path + ": " + why);
}

void check_writable(const std::string& path) {
  const auto status = status_of(path);
  if (status && S_ISDIR(status->st_mode)) cannot_write(path, std::strerror(EISDIR));
  const bool is_replaced = !status || S_ISREG(status->st_mode);
  const std::string folder = folder_of(resolved(path));
  if ((status && access(path.c_str(), W_OK) != 0) ||
      (is_replaced && access(folder.c_str(), W_OK | X_OK) != 0)) {
    cannot_write(path, std::strerror(errno));
  }
}

bool write_all(int descriptor, const std::string& bytes) {
  std::size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t count = write(descriptor, bytes.data() + written, bytes.size() - written);
    if (count < 0 && errno != EINTR) return false;
    if (count > 0) written += static_cast<std::size_t>(count);
  }
  return true;
}

NewFile::NewFile(const std::string& path) : m_path(path), m_target(resolved(path)) {
  const auto status = status_of(path);
  if (status && !S_ISREG(status->st_mode)) {
    m_descriptor = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (m_descriptor < 0) cannot_write(path, std::strerror(errno));
    return;
  }
  m_draft = m_target + ".XXXXXX";
  m_descriptor = mkostemp(m_draft.data(), O_CLOEXEC);
  if (m_descriptor < 0) cannot_write(path, std::strerror(errno));
  fchmod(m_descriptor, status ? status->st_mode & 0777 : usual_mode());
}

NewFile::~NewFile() {
  if (m_descriptor >= 0) close(m_descriptor);
  if (!m_draft.empty()) unlink(m_draft.c_str());
}

void NewFile::write(const std::string& bytes) {
  if (!write_all(m_descriptor, bytes)) cannot_write(m_path, std::strerror(errno));
}

void NewFile::commit() {
  const bool is_named_later = !m_draft.empty();
  // EINVAL comes from a file system that has nothing to flush.
  if (is_named_later && fsync(m_descriptor) != 0 && errno != EINVAL) {
    cannot_write(m_path, std::strerror(errno));
  }
  const int descriptor = m_descriptor;
  m_descriptor = -1;
  if (close(descriptor) != 0) cannot_write(m_path, std::strerror(errno));
  if (is_named_later && rename(m_draft.c_str(), m_target.c_str()) != 0) {
    cannot_write(m_path, std::strerror(errno));
  }
  m_draft.clear();
}

void write_file(const std::string& path, const std::string& bytes) {
  NewFile file(path);
  file.write(bytes);
  file.commit();
}

void empty_file(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr || std::fclose(file) != 0) cannot_write(path, std::strerror(errno));
}

void flush_output() {
  errno = 0;
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return;
  const int error = errno;
  pollfd output = {STDOUT_FILENO, 0, 0};  // poll always reports a closed pipe
  if (poll(&output, 1, 0) == 1 && (output.revents & POLLERR) != 0) throw OutputClosed();
  // Where stdio itself has flushed before, the reason is not known any more.
  cannot_write("the output", error != 0 ? std::strerror(error) : "not all of it was taken");
}

std::string read_file(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) throw std::runtime_error(path + ": " + std::strerror(errno));
  std::string bytes;
  char chunk[4096];
  while (const std::size_t count = std::fread(chunk, 1, sizeof chunk, file)) {
    bytes.append(chunk, count);
  }
  const bool failed = std::ferror(file) != 0;
  std::fclose(file);
  if (failed) throw std::runtime_error(path + ": cannot be read");
  return bytes;
}

}  // namespace spectralsensorctl
