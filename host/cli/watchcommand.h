#pragma once

#include "host/cli/arguments.h"

namespace host {

/// Adds `torvex watch`: the values of a running machine, live, from outside.
void addWatchCommand(CLI::App& app, Command& chosen);

}  // namespace host
