#pragma once

#include "host/cli/arguments.h"

namespace host {

void addFleetCommand(CLI::App& app, Command& chosen);

}  // namespace host
