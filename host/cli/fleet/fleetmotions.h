#pragma once

#include <string>
#include <vector>

#include "host/cli/fleet/fleetfile.h"

namespace host {

/// What each machine of the fleet plays: of `given`, "NAME=MOTION" is for one and "MOTION" for all;
/// where nothing is given, those of the file. Throws `UserError`.
std::vector<std::vector<std::string>> motionsOf(const Fleet& fleet,
                                                const std::vector<std::string>& given);

}  // namespace host
