#pragma once

#include "host/cli/arguments.h"

namespace host {

void addLinkCommand(CLI::App& app, Command& chosen);

}  // namespace host
