#pragma once

#include "host/cli/arguments.h"

namespace host {

void addPsCommand(CLI::App& app, Command& chosen);

}  // namespace host
