#pragma once

#include "host/input/pointreader.h"

namespace host {

/// Reads the trajectory_msgs/JointTrajectory at `node` into `motion`: joints,
/// points, and notes on what is ignored. Throws `UserError`.
void readJointTrajectory(const PointReader& reader, const YAML::Node& node, CommandBatch& batch);

}  // namespace host
