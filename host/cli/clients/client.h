#pragma once

#include <functional>
#include <string>

#include "host/base/values.h"
#include "host/cli/arguments.h"
#include "host/client/answer.h"

namespace host {

/// What the subcommands say of their exit status that are clients of a running machine.
extern const char clientStatusText[];

/// Runs what speaks to a machine; when it refuses or does not answer, that is said, and the
/// result is the status to exit with.
int clientStatus(const std::function<int()>& command);

/// Which machine is meant: see `doorOf`.
void addMachineName(CLI::App& command, std::string& machine);

/// What was taken, in words for a user; a line for each batch in which something was changed.
std::string takenText(const Json& answer);

}  // namespace host
