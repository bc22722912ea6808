#pragma once

#include <string>

#include "host/input/machinemodel.h"
#include "host/motion/plan.h"

namespace host {

/// What a plan would do on a machine that stands as described: `warnings`, the commanded path
/// of each key as its `curve`, and `duration_ms`, as the interface has them,
/// in one printed object.
std::string printedPreview(const MachineModel& machine, const Plan& plan);

}  // namespace host
