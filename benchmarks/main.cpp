// Prints what the library costs. The exit status is 1 if the library issues or allocates more than
// it must, or if a benchmark fails; the times do not matter. With "--run SESSION TIMES" the program
// only runs one session, for a profiler; with "--record FILE" it writes the calls of each session.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "benchmarks/in_process.h"
#include "benchmarks/print.h"
#include "benchmarks/table.h"

int main(int argc, char** argv) {
  if (argc == 4 && std::string(argv[1]) == "--run") {
    if (bench::run_session(argv[2], std::atoi(argv[3]))) return 0;
    std::fprintf(stderr, "no session \"%s\"\n", argv[2]);
    return 2;
  }
  if (argc == 3 && std::string(argv[1]) == "--record") {
    return bench::write_recording(argv[2]) ? 0 : 1;
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
