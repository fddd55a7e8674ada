#pragma once

// What this process holds, as /proc has it.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace sweep {

inline long count_entries(const char* folder) {
  const std::filesystem::directory_iterator entries(folder);
  return std::distance(begin(entries), end(entries));
}

inline long count_descriptors() { return count_entries("/proc/self/fd"); }

inline long count_mapped_files() {
  std::ifstream maps("/proc/self/maps");
  long count = 0;
  for (std::string line; std::getline(maps, line);) {
    count += line.find('/') != std::string::npos ? 1 : 0;
  }
  return count;
}

}  // namespace sweep
