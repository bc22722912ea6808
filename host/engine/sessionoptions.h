#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/engine/guard.h"
#include "host/engine/pacer.h"
#include "host/engine/realtime.h"

namespace host {

enum class Clock { realtime, simulated };

/// How a machine is brought up and its cycles are run.
struct SessionOptions {
  Clock clock = Clock::realtime;
  /// Goes on when nothing is left to do, until a signal. Without it, a run ends then.
  bool waitsForSignal = false;
  /// Actuators that are written down although no motion commands them.
  std::vector<int> shownActuators{};
  /// What machine time does after the process was held up.
  Late late = Late::stand;
  /// What is done about a step beyond a maximum velocity.
  GuardMode guard = GuardMode::hold;
  /// Of the cycle thread, in real time.
  ThreadScheduling cycleScheduling;
  /// The tick, in milliseconds modulo 2^32, of the first cycle.
  std::uint32_t startTick = 0;
  /// How far a measured value may lie from what is commanded at the end, in the unit of the
  /// actuator.
  double tolerance = 0.01;
  /// The device pool's name in shared memory; empty: no other process sees it.
  std::string poolName{};
  /// Who may read it, as `simulation::Machine` takes it.
  std::optional<std::uint32_t> poolMode = std::nullopt;
  std::string preferenceDirectory = ".";
};

}  // namespace host
