#pragma once

// Files that the tool reads and writes. On failure these functions throw std::runtime_error with
// the file's name and the reason.

#include <string>

namespace spectralsensorctl {

[[noreturn]] void cannot_write(const std::string& path, const std::string& why);

// Throws if the file cannot be written. It is called before a measurement, so that the measurement
// is not lost.
void check_writable(const std::string& path);

// Empties the file, or creates it empty.
void empty_file(const std::string& path);

void write_file(const std::string& path, const std::string& bytes);
// Flushes stdout. Throws if what was printed could not be written.
void flush_output();

std::string read_file(const std::string& path);

}  // namespace spectralsensorctl
