#pragma once

#include "host/cli/arguments.h"

namespace host {

/// Adds "torvex replay".
void addReplayCommand(CLI::App& app, Command& chosen);

}  // namespace host
