#pragma once

#include <functional>
#include <string>

#include "host/cli/fleet/fleetfile.h"
#include "host/client/doorclient.h"

namespace host {

/// What came of asking one machine.
struct FleetOutcome {
  /// As an exit status; what `text` says went wrong unless it is 0.
  int status = 0;
  std::string text;
};

/// Calls what speaks to a machine; what it throws becomes the outcome.
FleetOutcome outcomeOf(const std::function<std::string()>& ask);

/// An outcome in words for a user, in lines.
std::string shown(const std::string& machine, const FleetOutcome& outcome);

/// What one machine is asked; the result is what to say of it, if anything. Each on a thread of its
/// own.
using AskMachine = std::function<std::string(const FleetMachine& machine, DoorClient& door)>;

/// Asks all machines at the same time and says what came of it as they answer; two seconds at most
/// for each connection, and for each answer. The result is the highest exit status.
int askAll(const Fleet& fleet, const AskMachine& ask);

}  // namespace host
