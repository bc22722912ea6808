#pragma once

#include <string>
#include <vector>

#include "host/input/commandbatch.h"
#include "host/input/machinemodel.h"
#include "host/input/motionoptions.h"
#include "host/input/motiontexts.h"
#include "host/input/pointreader.h"

namespace host {

/// Reads files for this machine, each a trajectory_msgs/JointTrajectory, command batches or
/// named motions, in YAML; "FILE:NAME" is one of the named motions of a file. Throws a
/// `UserError` of all that is wrong with them.
std::vector<CommandBatch> readMotionFiles(const std::vector<std::string>& names,
                                          const MachineModel& machine,
                                          const MotionOptions& options = {});

/// The same, from these texts.
std::vector<CommandBatch> readMotions(const std::vector<std::string>& names,
                                      const MotionTexts& texts, const MachineModel& machine,
                                      const MotionOptions& options);

/// Reads the trajectory below a node, in wrappers or without. Throws `UserError` and
/// `AlreadyReported`.
void readTrajectoryBelow(const PointReader& reader, const Node& node, CommandBatch& batch);

}  // namespace host
