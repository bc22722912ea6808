#pragma once

#include "host/input/pointreader.h"

namespace host {

/// Reads the trajectory_msgs/JointTrajectory at `node` into `motion`: joints,
/// points, and notes on what is ignored. Throws `InputError`.
void readJointTrajectory(const PointReader& reader, const YAML::Node& node, Motion& motion);

}  // namespace host
