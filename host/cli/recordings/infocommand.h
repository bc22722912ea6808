#pragma once

#include "host/cli/options.h"

namespace host {

/// Adds "torvex info".
void addInfoCommand(CLI::App& app, Command& chosen);

}  // namespace host
