#pragma once

#include "host/cli/options.h"

namespace host {

/// Adds "torvex plot".
void addPlotCommand(CLI::App& app, Command& chosen);

}  // namespace host
