// Runs a fuzz target on files without a fuzzer, so that seeds and the inputs that a fuzzer has
// found serve as tests. Each argument is a file or a folder of files.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/support.h"

extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments);

namespace {

std::vector<std::string> files_in(const std::string& place) {
  if (!std::filesystem::is_directory(place)) return {place};
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(place)) {
    files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

bool run(const std::string& path) {
  std::printf("%s\n", path.c_str());
  std::fflush(stdout);  // after a crash the last path printed is the culprit
  std::ifstream file(path, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (!file.is_open()) return false;
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  return true;
}

}  // namespace

int main(int count, char** arguments) {
#ifdef FUZZ_ON_KERNEL_NODES
  fuzz::enter_places(arguments);
#endif
  const std::vector<std::string> places(arguments + 1, arguments + count);
  if (LLVMFuzzerInitialize(&count, &arguments) != 0) return 1;
  int ran = 0;
  for (const std::string& place : places) {
    for (const std::string& path : files_in(place)) {
      if (!run(path)) {
        std::fprintf(stderr, "cannot read %s\n", path.c_str());
        return 1;
      }
      ++ran;
    }
  }
  std::printf("%d inputs\n", ran);
  return ran > 0 ? 0 : 1;
}
