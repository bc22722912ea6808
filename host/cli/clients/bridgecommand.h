#pragma once

#include "host/cli/arguments.h"

namespace host {

void addBridgeCommand(CLI::App& app, Command& chosen);

}  // namespace host
