#pragma once

#include <vector>

#include "host/engine/engineoptions.h"
#include "host/engine/realtime.h"

namespace host {

enum class Clock { realtime, simulated };

/// How a machine is brought up and its cycles are run.
struct SessionOptions : EngineOptions {
  Clock clock = Clock::realtime;
  /// Goes on when nothing is left to do, until a signal. Without it, a run ends then.
  bool waitsForSignal = false;
  /// Actuators that are written down although no motion commands them.
  std::vector<int> shownActuators{};
  /// Of the cycle thread, in real time.
  ThreadScheduling cycleScheduling;
  /// How far a measured value may lie from what is commanded at the end, in the unit of the
  /// actuator.
  double tolerance = 0.01;
};

}  // namespace host
