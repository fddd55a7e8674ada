#include "benchmarks/print.h"

#include <cstdio>

namespace bench {

void print_head() { print_row("figure", "library", "floor", ""); }

void print_row(const std::string& figure, const std::string& library, const std::string& floor,
               const std::string& remark) {
  std::printf("%-58s %12s %12s  %s\n", figure.c_str(), library.c_str(), floor.c_str(),
              remark.c_str());
}

}  // namespace bench
