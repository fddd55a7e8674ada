#pragma once

// Prints the benchmarks as a table, each figure next to its floor from the same run.

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace bench {

// The benchmarks are named "FIGURE/library" and, for a figure that has a floor, "FIGURE/floor". The
// least CPU time of all repetitions counts, because any excess is due to other work of the machine.
class Table : public benchmark::BenchmarkReporter {
 public:
  // Sets a mark: the figure should cost at most `times` as much as its floor.
  void at_most(const std::string& figure, double times) { m_marks[figure] = times; }
  // Returns whether a benchmark failed; a missed mark is not a failure.
  bool has_failed() const { return m_has_failed; }

  bool ReportContext(const Context& context) override;
  void ReportRuns(const std::vector<Run>& runs) override;
  void Finalize() override;

 private:
  struct Row {
    double library_ns = 0;
    double floor_ns = 0;
  };
  std::string remark_on(const std::string& figure, const Row& row) const;

  std::map<std::string, Row> m_rows;
  std::map<std::string, double> m_marks;
  bool m_has_failed = false;
};

}  // namespace bench
