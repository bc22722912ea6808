#pragma once

#include "host/cli/arguments.h"

namespace host {

/// Adds `torvex doctor`: how punctual cycles can be on this machine.
void addDoctorCommand(CLI::App& app, Command& chosen);

}  // namespace host
