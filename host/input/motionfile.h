#pragma once

#include <string>
#include <vector>

#include "host/input/commandbatch.h"
#include "host/input/machinemodel.h"

namespace host {

/// Reads files for this machine, each a trajectory_msgs/JointTrajectory or lists
/// of commands, in YAML. Throws a `UserError` of all that is wrong with them.
std::vector<CommandBatch> readMotionFiles(const std::vector<std::string>& paths,
                                          const MachineModel& machine);

}  // namespace host
