#pragma once

#include "host/cli/arguments.h"

namespace host {

/// Adds "torvex convert".
void addConvertCommand(CLI::App& app, Command& chosen);

}  // namespace host
