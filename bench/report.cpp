#include "bench/report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <limits>

#include "bench/benchmarks.h"
#include "bench/progress.h"

namespace bench {

namespace {

struct Goal {
  const char* what;
  const char* measured;
  const char* base;
  const char* counter;
  /// The largest ratio; infinite where one is only shown.
  double most;
  /// Where it is not the same one.
  const char* baseCounter = nullptr;
};

constexpr double open = std::numeric_limits<double>::infinity();

constexpr Goal goals[] = {
    {"linear interpolation / floor with lock, 100 actuators", "cycle/100/on_the_way/torvex",
     "cycle/100/floor_with_lock", nsCounter, 1.5},
    {"idle timeline / floor without lock, 100 actuators", "cycle/100/idle/torvex",
     "cycle/100/floor", nsCounter, 0.15},
    {"500 ascending items built and pushed / sorted vector",
     "push/merge/500_into_0/ascending/torvex", "push/merge/500_into_0/ascending/vector", nsCounter,
     1.2},
    {"  of that, the lock of the node pool", "pool_lock/1_time",
     "push/merge/500_into_0/ascending/vector", nsCounter, open},
    {"  the same / a vector that is sorted only when it must be",
     "push/merge/500_into_0/ascending/torvex",
     "push/merge/500_into_0/ascending/vector_looking_first", nsCounter, open},
    {"REPLACE of 250 items by 1 / released from the front",
     "push/replace/1_into_250/ascending/torvex", "push/replace/1_into_250/ascending/front_first",
     nsCounter, 0.07},
    {"  of that, the lock of the node pool", "pool_lock/250_times",
     "push/replace/1_into_250/ascending/front_first", nsCounter, open},
    {"p99 of a cycle beside 650 lists of 500 a second / beside none", "beside_lists/650",
     "beside_lists/0", "p99", 2.0},
    {"500 points built from the reserve and pushed / sorted vector", "engine/reserve/500_pushed",
     "push/merge/500_into_0/ascending/vector", nsCounter, 1.0},
    {"  taking their nodes back", "engine/reserve/500_taken_back",
     "push/merge/500_into_0/ascending/vector", nsCounter, open},
    {"a cycle of an axis on curves / on lines", "engine/share/100_axes/curves",
     "engine/share/100_axes/lines", "axis_ns", open},
    {"the guard, for an axis on its way / 5 ns", "engine/guard/1000_axes", "engine/guard/1000_axes",
     nsCounter, 1.0, "most_ns"},
    {"1,000 axes reach a point / none does, p50", "engine/together/1000/steady",
     "engine/together/1000/steady", "p50", 1.2, "none_p50"},
    {"  p99 / p50 where none does", "engine/together/1000/steady", "engine/together/1000/steady",
     "p99", 1.5, "none_p50"},
    {"  where the backlogs run dry, p50", "engine/together/1000/running_dry",
     "engine/together/1000/running_dry", "p50", 1.2, "none_p50"},
    {"  p99 / p50 where none does", "engine/together/1000/running_dry",
     "engine/together/1000/running_dry", "p99", 1.5, "none_p50"},
    {"  where batches replace each other, p50", "engine/together/1000/replaced",
     "engine/together/1000/replaced", "p50", 1.2, "none_p50"},
    {"  p99 / p50 where none does", "engine/together/1000/replaced",
     "engine/together/1000/replaced", "p99", 1.5, "none_p50"},
    {"a cycle of 30 axes that is recorded / that is not", "recording/30/file", "recording/30/none",
     nsCounter, open},
    {"  that goes into a ring", "recording/30/ring", "recording/30/none", nsCounter, open},
    {"a cycle of 1,000 axes that is recorded / that is not", "recording/1000/file",
     "recording/1000/none", nsCounter, open},
    {"  that goes into a ring", "recording/1000/ring", "recording/1000/none", nsCounter, open},
    {"p99.9 of a cycle's latency beside a client that floods / beside none", "door/cycle/flooded",
     "door/cycle/idle", nsCounter, 2.0},
    {"a trajectory of DDS to the register / a round trip of DDS, p50",
     "wire/trajectory_to_register", "wire/ddsperf_round_trip", "p50_us", open},
    {"  p99", "wire/trajectory_to_register", "wire/ddsperf_round_trip", "p99_us", open},
};

void printGoal(const Goal& goal, double ratio) {
  if (std::isnan(ratio)) {
    std::printf("%-64s %8s\n", goal.what, "-");
  } else if (std::isinf(goal.most)) {
    std::printf("%-64s %8.3f\n", goal.what, ratio);
  } else {
    std::printf("%-64s %8.3f %8.2f  %s\n", goal.what, ratio, goal.most,
                ratio <= goal.most ? "reached" : "missed");
  }
}

}  // namespace

bool Report::ReportContext(const Context& context) {
  PrintBasicContext(&std::cout, context);
  return true;
}

void Report::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    if (run.error_occurred) {
      std::printf("%s: %s\n", run.run_name.function_name.c_str(), run.error_message.c_str());
      failed_ = true;
    } else if (run.run_type == Run::RT_Iteration) {
      noteRun(lines_[run.family_index], run);
    } else if (run.aggregate_name == "median") {
      lines_[run.family_index].benchmark = run.run_name.function_name;
      lines_[run.family_index].medians = run.counters;
    } else if (run.aggregate_name == "cv") {
      lines_[run.family_index].spread = run.counters.at(figureOf(run.counters));
    }
  }
}

/// One repetition has no aggregates, and is its own median.
void Report::noteRun(Line& line, const Run& run) {
  line.benchmark = run.run_name.function_name;
  line.medians = run.counters;
  if (const auto found = run.counters.find(maxCounter); found != run.counters.end()) {
    line.longest = std::max(line.longest, found->second.value);
  }
}

void Report::Finalize() {
  endProgress();
  std::printf("\nMedians. ns: for each actuator, item, node, name or attribute.\n");
  std::printf("%-58s %12s %-7s %8s\n", "benchmark", "median", "unit", "cv");
  for (const auto& [order, line] : lines_) {
    print(line);
  }
  std::printf("\n%-64s %8s %8s\n", "goals", "ratio", "at most");
  for (const Goal& goal : goals) {
    const char* const baseCounter = goal.baseCounter == nullptr ? goal.counter : goal.baseCounter;
    printGoal(goal, median(goal.measured, goal.counter) / median(goal.base, baseCounter));
  }
}

void Report::print(const Line& line) {
  const char* const figure = figureOf(line.medians);
  std::printf("%-58s %12.2f %-7s %7.1f%%", line.benchmark.c_str(), line.medians.at(figure).value,
              figure, 100.0 * line.spread);
  for (const auto& [name, counter] : line.medians) {
    if (name != figure) {
      std::printf("  %s %.0f", name.c_str(), name == maxCounter ? line.longest : counter.value);
    }
  }
  std::printf("\n");
}

const char* Report::figureOf(const benchmark::UserCounters& counters) {
  for (const char* const figure : {bytesCounter, percentCounter}) {
    if (counters.count(figure) == 1) {
      return figure;
    }
  }
  return nsCounter;
}

double Report::median(const std::string& benchmark, const char* counter) const {
  for (const auto& [order, line] : lines_) {
    if (line.benchmark == benchmark) {
      return line.medians.at(counter).value;
    }
  }
  return std::numeric_limits<double>::quiet_NaN();
}

}  // namespace bench
