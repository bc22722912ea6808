#pragma once

#include "host/cli/arguments.h"

namespace host {

/// Adds `torvex export`: writes the preferences of one container to a file.
void addExportCommand(CLI::App& app, Command& chosen);

}  // namespace host
