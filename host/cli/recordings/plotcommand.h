#pragma once

#include "host/cli/arguments.h"

namespace host {

/// Adds "torvex plot".
void addPlotCommand(CLI::App& app, Command& chosen);

}  // namespace host
