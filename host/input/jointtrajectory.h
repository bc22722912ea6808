#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/input/source.h"
#include "host/input/urdf.h"

namespace host {

/// A motion: where some of a robot's actuators are to be, and when.
struct Motion {
  std::string path;
  /// The actuator of each column, as its index in the machine's description.
  std::vector<int> actuators;
  /// Milliseconds from the start of the motion, strictly rising.
  std::vector<std::uint32_t> times;
  /// One row a point, one column an actuator.
  std::vector<float> positions;
  /// Where each point stands in the file.
  std::vector<Position> places;
  /// What was read over, in words for a user.
  std::vector<std::string> notes;

  [[nodiscard]] float position(std::size_t point, std::size_t column) const {
    return positions[point * actuators.size() + column];
  }
};

/// Reads a trajectory_msgs/JointTrajectory in YAML for this robot. Times may
/// be {sec, nanosec}, {secs, nsecs} or a number of seconds. Throws `InputError`.
Motion readJointTrajectory(const std::string& path, const Robot& robot);

}  // namespace host
