#pragma once

#include <string>
#include <vector>

#include "host/torvex.h"

namespace host {

/// What was loaded, for standard output.
std::string loadedReport(const MachineFile& machine, const std::vector<Motion>& motions,
                         const Schedule& schedule, const RunOptions& options,
                         bool replacedLeftover);

/// The cycle's figures and a row an actuator, for standard output.
std::string runReport(Torvex& torvex);

/// Why the run did not do what was asked, one reason a line; empty when it did.
std::vector<std::string> shortfalls(Torvex& torvex);

/// What a user should know although the run did what was asked.
std::vector<std::string> warnings(const Torvex& torvex);

}  // namespace host
