#pragma once

#include <set>
#include <string>

#include "simulation/machine.h"

namespace host {

/// A robot description, as a machine to be simulated.
struct Robot {
  std::string name;
  /// Actuator i bears a joint's name and sensor i, named J/Sensor, measures it;
  /// the sensors of mimic joints follow.
  simulation::MachineDescription machine;
  /// Joints without an actuator: mimic, fixed, floating and planar ones.
  std::set<std::string> uncommandedJoints;
};

/// Reads a URDF file. Only the joints count: names, types, limits, mimicry.
/// Throws `InputError`.
Robot readUrdf(const std::string& path);

}  // namespace host
