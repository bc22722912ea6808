#pragma once

#include "host/cli/arguments.h"

namespace host {

/// stop, hold and release.
void addHoldCommands(CLI::App& app, Command& chosen);

}  // namespace host
