#include "benchmarks/table.h"

#include "benchmarks/print.h"

#include <cstdio>

namespace bench {

namespace {

std::string time_text(double ns) {
  char text[32];
  std::snprintf(text, sizeof text, ns < 1000 ? "%.0f ns" : "%.2f us", ns < 1000 ? ns : ns / 1000);
  return text;
}

bool takes_end(std::string* text, const std::string& end) {
  if (text->size() < end.size() || text->compare(text->size() - end.size(), end.size(), end) != 0) {
    return false;
  }
  text->resize(text->size() - end.size());
  return true;
}

void keep_least(double ns, double* least) {
  if (*least <= 0 || ns < *least) *least = ns;
}

}  // namespace

bool Table::ReportContext(const Context&) { return true; }

void Table::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    if (run.error_occurred) {
      std::fprintf(stderr, "%s: %s\n", run.run_name.str().c_str(), run.error_message.c_str());
      m_has_failed = true;
    }
    if (run.error_occurred || run.run_type != Run::RT_Iteration) continue;
    std::string name = run.run_name.function_name;
    const double ns =
        run.GetAdjustedCPUTime() * 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit);
    if (takes_end(&name, "/floor")) {
      keep_least(ns, &m_rows[name].floor_ns);
    } else if (takes_end(&name, "/library")) {
      keep_least(ns, &m_rows[name].library_ns);
    }
  }
}

std::string Table::remark_on(const std::string& figure, const Row& row) const {
  if (row.floor_ns <= 0 || row.library_ns <= 0) return "";
  const double times = row.library_ns / row.floor_ns;
  char text[64];
  std::snprintf(text, sizeof text, "%.2f times", times);
  std::string remark = text;
  const auto mark = m_marks.find(figure);
  if (mark == m_marks.end()) return remark;
  std::snprintf(text, sizeof text, ", at most %.2f%s", mark->second,
                times > mark->second ? "  MISSED" : "");
  return remark + text;
}

void Table::Finalize() {
  for (const auto& [figure, row] : m_rows) {
    print_row(figure, row.library_ns > 0 ? time_text(row.library_ns) : "",
              row.floor_ns > 0 ? time_text(row.floor_ns) : "", remark_on(figure, row));
  }
}

}  // namespace bench
