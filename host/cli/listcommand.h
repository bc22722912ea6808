#pragma once

#include "host/cli/arguments.h"

namespace host {

/// Adds `torvex list`: the attributes of a machine, as the library sees them.
void addListCommand(CLI::App& app, Command& chosen);

}  // namespace host
