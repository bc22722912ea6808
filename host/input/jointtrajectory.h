#pragma once

#include "host/input/pointreader.h"

namespace host {

/// Reads the trajectory_msgs/JointTrajectory at `node` into `batch`: joints,
/// points, and notes on what is ignored. Throws `UserError`.
void readJointTrajectory(const PointReader& reader, const Node& node, CommandBatch& batch);

/// The same of a named motion: `joints`, and either `points` or, in two flat lists,
/// `positions` and `times_from_start`.
void readNamedMotion(const PointReader& reader, const Node& node, CommandBatch& batch);

}  // namespace host
