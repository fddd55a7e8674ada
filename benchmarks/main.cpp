// Prints the library's costs, or with "--run SESSION TIMES" runs one session for an instrument.

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
  bench::register_sessions();
  bench::Table table;
  benchmark::RunSpecifiedBenchmarks(&table);
  return fine ? 0 : 1;
}
