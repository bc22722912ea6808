#pragma once

#include "host/cli/arguments.h"

namespace host {

/// completion; and manual, for the build, which `--help` does not show.
void addDocumentCommands(CLI::App& app, Command& chosen);

}  // namespace host
