#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace bench {

/// A table of medians, a line for each benchmark, and then the goals.
class Report : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& context) override;
  void ReportRuns(const std::vector<Run>& runs) override;
  void Finalize() override;

  /// Whether a benchmark could not be measured.
  [[nodiscard]] bool hasFailed() const { return failed_; }

 private:
  struct Line {
    std::string benchmark;
    benchmark::UserCounters medians;
    /// Standard deviation by mean.
    double spread = 0.0;
    /// The largest of what is a maximum in each repetition.
    double longest = 0.0;
  };

  static void noteRun(Line& line, const Run& run);
  static void print(const Line& line);
  /// The counter that the table shows of a benchmark.
  static const char* figureOf(const benchmark::UserCounters& counters);
  /// The median of a counter; not a number when it was not measured.
  [[nodiscard]] double median(const std::string& benchmark, const char* counter) const;

  /// By the order of registration: results arrive in random order.
  std::map<std::int64_t, Line> lines_;
  bool failed_ = false;
};

}  // namespace bench
