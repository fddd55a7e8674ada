// Prints the library's costs; exit status 1 where it issues or allocates more than it must,
// whatever the times. Or with "--run SESSION TIMES" runs one session for an instrument.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "benchmarks/sessions.h"
#include "benchmarks/table.h"

int main(int argc, char** argv) {
  if (argc == 4 && std::string(argv[1]) == "--run") {
    if (bench::run_session(argv[2], std::atoi(argv[3]))) return 0;
    std::fprintf(stderr, "no session \"%s\"\n", argv[2]);
    return 2;
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  bench::print_head();
  const bool fine = bench::print_counts();
  bench::Table table;
  bench::register_sessions(&table);
  benchmark::RunSpecifiedBenchmarks(&table);
  return fine && !table.has_failed() ? 0 : 1;
}
