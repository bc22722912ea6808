#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "host/engine/counter.h"
#include "host/engine/histogram.h"
#include "host/engine/pacer.h"
#include "host/engine/samplehistory.h"
#include "host/engine/sessionoptions.h"
#include "host/motion/limits.h"
#include "host/motion/point.h"
#include "host/motion/pointcounts.h"
#include "simulation/machine.h"

namespace host {

/// What the cycle counted. Other threads may read all but the rows meanwhile.
struct CycleCount {
  Counter cycles;
  /// Without handing over the trace row, which may wait in simulated time.
  Histogram durations;
  /// From the moment a cycle was planned for to its begin; nothing in simulated time.
  Histogram latencies;
};

/// One axis that the plan commands, as the run left it.
struct AxisResult {
  simulation::Actuator actuator;
  /// In the machine's description.
  int index = 0;
  PointCounts counts;
  /// Cycles that found the register otherwise than the one before had left it.
  std::uint64_t externalWrites = 0;
  /// What its command register holds.
  hal::AttrGeneric command;
  /// What its sensor shows; none without a sensor.
  std::optional<double> measured;
  /// The point that it is to hold; none when it was stopped on its way.
  std::optional<Point> target;
  /// The last of the points that still wait; the target where none does.
  std::optional<Point> last;
  /// Whether the guard brought it to rest.
  bool isHeld = false;
  /// Its columns in the sample history.
  std::size_t commandColumn = 0;
  std::optional<std::size_t> measuredColumn;

  [[nodiscard]] double commanded() const { return commandedNumber(actuator, command); }
  /// 0 without a sensor.
  [[nodiscard]] double trackingError() const {
    return measured ? std::abs(*measured - commanded()) : 0.0;
  }
};

/// What a run came to: plain data, which all results are made from.
struct RunResult {
  RunResult(SessionOptions session_, SampleHistory history_)
      : session(std::move(session_)), history(std::move(history_)) {}

  /// How it was run.
  SessionOptions session;
  /// In the order of the machine.
  std::vector<AxisResult> axes;
  /// A column for each traced one.
  SampleHistory history;
  CycleCount counts;
  PaceCount pace;
  /// Machine time of the latest cycle, one cycle before 0 at first.
  std::int64_t durationMs = 0;
};

}  // namespace host
