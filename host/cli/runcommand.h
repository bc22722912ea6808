#pragma once

#include "host/cli/arguments.h"

namespace host {

/// Adds `torvex run`: moves a simulated machine along motions.
void addRunCommand(CLI::App& app, Command& chosen);

}  // namespace host
