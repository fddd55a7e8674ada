// How long loading a library takes, with all its symbols bound: its path, and how often. Prints the
// median in microseconds.

#include <dlfcn.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

int main(int argc, char** argv) {
  const int times = argc > 2 ? std::atoi(argv[2]) : 0;
  if (times < 1) {
    std::fprintf(stderr, "usage: load_time LIBRARY TIMES\n");
    return 2;
  }
  std::vector<double> times_us;
  for (int i = 0; i < times; ++i) {
    const auto start = std::chrono::steady_clock::now();
    void* const library = dlopen(argv[1], RTLD_NOW);
    const auto end = std::chrono::steady_clock::now();
    if (library == nullptr) {
      std::fprintf(stderr, "%s\n", dlerror());
      return 1;
    }
    dlclose(library);
    times_us.push_back(std::chrono::duration<double, std::micro>(end - start).count());
  }
  std::nth_element(times_us.begin(), times_us.begin() + times / 2, times_us.end());
  std::printf("%.0f\n", times_us[static_cast<std::size_t>(times / 2)]);
  return 0;
}
