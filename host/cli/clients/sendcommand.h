#pragma once

#include "host/cli/arguments.h"

namespace host {

void addSendCommand(CLI::App& app, Command& chosen);

}  // namespace host
