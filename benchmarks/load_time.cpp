// Measures how long it takes to load each of several libraries with all its symbols bound. The
// arguments are how often to load each library, and the paths of the libraries, which take turns.
// Prints the median of each in microseconds, all on one line.

#include <dlfcn.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

int main(int argc, char** argv) {
  const int times = argc > 2 ? std::atoi(argv[1]) : 0;
  if (times < 1) {
    std::fprintf(stderr, "usage: load_time TIMES LIBRARY...\n");
    return 2;
  }
  const std::vector<const char*> libraries(argv + 2, argv + argc);
  std::vector<std::vector<double>> times_us(libraries.size());
  for (int i = 0; i < times; ++i) {
    for (std::size_t which = 0; which < libraries.size(); ++which) {
      const auto start = std::chrono::steady_clock::now();
      void* const library = dlopen(libraries[which], RTLD_NOW);
      const auto end = std::chrono::steady_clock::now();
      if (library == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 1;
      }
      dlclose(library);
      times_us[which].push_back(std::chrono::duration<double, std::micro>(end - start).count());
    }
  }
  for (std::vector<double>& of_one : times_us) {
    std::nth_element(of_one.begin(), of_one.begin() + times / 2, of_one.end());
    std::printf("%.0f ", of_one[static_cast<std::size_t>(times / 2)]);
  }
  std::printf("\n");
  return 0;
}
