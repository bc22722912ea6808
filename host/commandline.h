#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace host {

enum class Clock { realtime, simulated };

/// What `torvex run` was asked to do.
struct RunOptions {
  std::string robotPath;
  std::string motionPath;
  Clock clock = Clock::realtime;
  std::uint32_t cycleMs = 10;
  /// The tick, in milliseconds modulo 2^32, of the first cycle.
  std::uint32_t startTick = 0;
  /// From the first cycle to the start of the motion; computed when not given.
  std::optional<std::uint32_t> leadMs;
  /// In the unit of the joint.
  double tolerance = 0.01;
  /// Empty: no trace.
  std::string tracePath;
  std::string poolName = "torvex";
};

/// Parses the command line and runs the subcommand. The result is the exit
/// status; what is wrong is said on standard error.
int runCommandLine(int argc, char** argv);

}  // namespace host
