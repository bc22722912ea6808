#pragma once

#include "host/cli/arguments.h"

namespace host {

/// Adds "torvex info".
void addInfoCommand(CLI::App& app, Command& chosen);

}  // namespace host
