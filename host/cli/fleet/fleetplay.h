#pragma once

#include <string>
#include <vector>

#include "host/cli/fleet/fleetfile.h"

namespace host {

struct FleetPlayOptions {
  /// "NAME=MOTION" for one machine, "MOTION" for all; empty: those of the file.
  std::vector<std::string> motions;
  /// When all begin, in seconds from now; 0: as soon as all are ready.
  double atSeconds = 0.0;
  bool ignoreUnknownJoints = false;
};

/// Plays motions on the machines of a fleet, which begin together, or none does; waits for their
/// end. The result is the exit status. While a `StopSignal` lives, which brings all to rest. Throws
/// `UserError`.
int playFleet(const Fleet& fleet, const FleetPlayOptions& options);

}  // namespace host
