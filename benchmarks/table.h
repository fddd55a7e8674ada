#pragma once

// The table that the benchmarks are shown as: each figure next to its floor of the same run.

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace bench {

// Benchmarks come as "FIGURE/library" and, where there is one, "FIGURE/floor"; of each the least
// CPU time counts that a repetition took: what is more is the machine's other work.
class Table : public benchmark::BenchmarkReporter {
 public:
  // How many times its floor a figure should cost at most.
  void at_most(const std::string& figure, double times) { m_marks[figure] = times; }
  bool has_failed() const { return m_has_failed; }  // a benchmark, not a mark

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

void print_head();
void print_row(const std::string& figure, const std::string& library, const std::string& floor,
               const std::string& remark);

}  // namespace bench
