#pragma once

#include "host/cli/arguments.h"

namespace host {

/// Adds `torvex check`: says what `torvex run` would refuse, and what lies beyond
/// the machine's limits, without moving anything.
void addCheckCommand(CLI::App& app, Command& chosen);

}  // namespace host
