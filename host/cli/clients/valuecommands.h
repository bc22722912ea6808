#pragma once

#include "host/cli/arguments.h"

namespace host {

/// get and set.
void addValueCommands(CLI::App& app, Command& chosen);

}  // namespace host
