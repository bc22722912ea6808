#pragma once

#include <string>
#include <vector>

#include "host/torvex.h"
#include "host/values.h"

namespace host {

/// What was loaded, for standard output.
std::string loadedReport(const MachineFile& machine, const std::vector<Motion>& motions,
                         const Schedule& schedule, const RunOptions& options,
                         bool replacedLeftover);

/// The cycle's figures and a row an actuator, for standard output.
std::string runReport(Torvex& torvex);

/// What is known of a run beside its counts.
struct Outcome {
  std::string machine;
  std::vector<std::string> warnings;
  std::vector<std::string> errors;
  /// What was exported, a line each.
  std::vector<std::string> exports;
  /// That stopped it; 0 when none did.
  int signal = 0;
};

/// The same and more as one object: times in milliseconds, latencies and durations in
/// nanoseconds.
Json runJson(Torvex& torvex, const Outcome& outcome);

/// Why the run did not do what was asked, one reason a line; empty when it did.
std::vector<std::string> shortfalls(Torvex& torvex);

/// What a user should know although the run did what was asked.
std::vector<std::string> warnings(const Torvex& torvex);

}  // namespace host
