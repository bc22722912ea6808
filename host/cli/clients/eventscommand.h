#pragma once

#include "host/cli/arguments.h"

namespace host {

void addEventsCommand(CLI::App& app, Command& chosen);

}  // namespace host
