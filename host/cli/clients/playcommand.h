#pragma once

#include "host/cli/arguments.h"

namespace host {

void addPlayCommand(CLI::App& app, Command& chosen);

}  // namespace host
