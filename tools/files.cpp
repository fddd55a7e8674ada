#include "tools/files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace spectralsensorctl {

void cannot_write(const std::string& path, const std::string& why) {
  throw std::runtime_error("cannot write " + path + ": " + why);
}

void check_writable(const std::string& path) {
  struct stat found = {};
  const bool exists = stat(path.c_str(), &found) == 0;
  if (exists && S_ISDIR(found.st_mode)) cannot_write(path, std::strerror(EISDIR));
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  if (access(exists ? path.c_str() : folder.c_str(), W_OK) != 0) {
    cannot_write(path, std::strerror(errno));
  }
}

void write_file(const std::string& path, const std::string& bytes) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) cannot_write(path, std::strerror(errno));
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  const int error = errno;
  if (std::fclose(file) != 0) cannot_write(path, std::strerror(errno));
  if (!written) cannot_write(path, std::strerror(error));
}

void flush_output() {
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    cannot_write("the output", std::strerror(errno));
  }
}

void empty_file(const std::string& path) { write_file(path, ""); }

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
