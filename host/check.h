#pragma once

#include <string>
#include <vector>

#include "host/plan.h"

namespace host {

/// What a plan asks for beyond the machine's limits, one warning a line with its
/// place: targets outside the limits, and ways that are steeper than an
/// actuator may move. Times are seconds after the start of the motion.
std::vector<std::string> limitWarnings(const MachineFile& machine, const Plan& plan);

}  // namespace host
