#pragma once

#include "host/cli/options.h"

namespace host {

/// Adds "torvex convert".
void addConvertCommand(CLI::App& app, Command& chosen);

}  // namespace host
