#pragma once

// Files that the tool reads and writes. All throw std::runtime_error with the name and the reason.

#include <string>

namespace spectralsensorctl {

[[noreturn]] void cannot_write(const std::string& path, const std::string& why);

// Throws when the file cannot be written: before a measurement, not after it.
void check_writable(const std::string& path);

// Leaves nothing in it.
void empty_file(const std::string& path);

void write_file(const std::string& path, const std::string& bytes);
// Sends what was printed on its way. Throws when it cannot be written.
void flush_output();

std::string read_file(const std::string& path);

}  // namespace spectralsensorctl
