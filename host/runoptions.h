#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/engine/pacer.h"
#include "host/engine/realtime.h"
#include "host/motion/schedule.h"
#include "host/preferenceexport.h"

namespace host {

enum class Clock { realtime, simulated };

/// What `torvex run` was asked to do.
struct RunOptions {
  std::string machinePath;
  std::vector<std::string> motionPaths;
  Clock clock = Clock::realtime;
  Timing timing;
  /// What machine time does after the process was held up.
  Late late = Late::stand;
  /// What is a warning otherwise is an error, before anything moves where it can be told.
  bool strict = false;
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
