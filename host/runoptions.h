#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/preferenceexport.h"
#include "host/realtime.h"

namespace host {

enum class Clock { realtime, simulated };

/// What decides when commands are due.
struct Timing {
  std::uint32_t cycleMs = 10;
  /// From the first cycle to the start of the motion; computed when not given.
  std::optional<std::uint32_t> leadMs;
};

/// What `torvex run` was asked to do.
struct RunOptions {
  std::string machinePath;
  std::vector<std::string> motionPaths;
  Clock clock = Clock::realtime;
  Timing timing;
  /// Of the cycle thread, in real time.
  ThreadPlace cyclePlace;
  /// The tick, in milliseconds modulo 2^32, of the first cycle.
  std::uint32_t startTick = 0;
  /// In the unit of the actuator.
  double tolerance = 0.01;
  /// Empty: no trace.
  std::string tracePath;
  /// Empty: no picture.
  std::string plotPath;
  std::string poolName = "torvex";
  /// What is exported at the end, and where to.
  std::vector<PreferenceExport> exports;
  std::string preferenceDirectory = ".";
  /// The outcome as a JSON object instead of tables.
  bool json = false;
};

}  // namespace host
