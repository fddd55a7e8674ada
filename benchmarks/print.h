#pragma once

// The rows of the table that the benchmarks print.

#include <string>

namespace bench {

void print_head();
void print_row(const std::string& figure, const std::string& library, const std::string& floor,
               const std::string& remark);

}  // namespace bench
