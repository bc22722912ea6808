#pragma once

#include "host/cli/options.h"

namespace host {

/// Adds "torvex replay".
void addReplayCommand(CLI::App& app, Command& chosen);

}  // namespace host
