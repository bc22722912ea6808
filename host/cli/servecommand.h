#pragma once

#include "host/cli/arguments.h"

namespace host {

/// Adds `torvex serve`: keeps a machine alive for clients that command it.
void addServeCommand(CLI::App& app, Command& chosen);

}  // namespace host
