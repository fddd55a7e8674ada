#pragma once

// Files that the tool reads and writes. On failure these functions throw std::runtime_error with
// the file's name and the reason.

#include <stdexcept>
#include <string>

namespace spectralsensorctl {

[[noreturn]] void cannot_write(const std::string& path, const std::string& why);

// Throws if the file cannot be written. It is called before a measurement, so that the measurement
// is not lost.
void check_writable(const std::string& path);

// Empties the file, or creates it empty.
void empty_file(const std::string& path);

// Writes all of the bytes to the descriptor. Returns false and sets errno on failure.
bool write_all(int descriptor, const std::string& bytes);

// A file that is written under another name in the same folder, and that gets its own name when it
// is whole. Until then a file that had this name before stays as it is. A device or a pipe is
// written directly.
class NewFile {
 public:
  explicit NewFile(const std::string& path);
  ~NewFile();  // removes the file if commit() has not succeeded
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  int descriptor() const { return m_descriptor; }
  void write(const std::string& bytes);
  // Gives the file its name after the system has accepted all of its bytes.
  void commit();

 private:
  std::string m_path;    // as the user gave it, for messages
  std::string m_target;  // behind symbolic links
  std::string m_draft;   // the name until commit(); empty for a device or a pipe
  int m_descriptor = -1;
};

// Writes a NewFile that consists of these bytes.
void write_file(const std::string& path, const std::string& bytes);

// The reader of the pipe that stdout is has gone.
class OutputClosed : public std::runtime_error {
 public:
  OutputClosed() : std::runtime_error("the output is closed") {}
};

// Flushes stdout. Throws if what was printed could not be written: OutputClosed if nobody reads it
// any more, else std::runtime_error.
void flush_output();

std::string read_file(const std::string& path);

}  // namespace spectralsensorctl
