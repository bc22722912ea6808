#pragma once

#include <limits>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "simulation/machine.h"

namespace host {

/// A joint that follows an actuator: it stands at `multiplier` times the actuator's value, plus
/// `offset`. Its limits are in its own units.
struct Follower {
  std::string name;
  int actuator = 0;
  double multiplier = 1.0;
  double offset = 0.0;
  double minimum = -std::numeric_limits<double>::infinity();
  double maximum = std::numeric_limits<double>::infinity();
  double maximumVelocity = std::numeric_limits<double>::infinity();
};

/// A machine as a file describes it, to be simulated.
struct MachineModel {
  /// All that was read.
  std::vector<std::string> paths;
  std::string name;
  /// What measures actuator A is the sensor named A/Sensor, if there is one.
  simulation::MachineDescription description;
  /// Joints of the URDF without an actuator: mimic, fixed, floating and planar ones.
  std::set<std::string> uncommandedJoints;
  /// Of actuators, by index, that do not approach at a quarter of their maximum velocity;
  /// units a second.
  std::map<int, double> approachVelocities;
  /// Of actuators, by index, that have one; units a second squared.
  std::map<int, double> maximumAccelerations;

  /// With limits of their own.
  std::vector<Follower> followers;

  /// Of actuators, by index, that are joints of a URDF: revolute, continuous or prismatic.
  std::map<int, std::string> jointTypes;
  /// The text of that URDF; null without one.
  std::shared_ptr<const std::string> urdf;

  [[nodiscard]] const simulation::Actuator& actuator(int index) const {
    return description.actuators[static_cast<std::size_t>(index)];
  }
  /// How fast the actuator, and what follows it, may move; units a second.
  [[nodiscard]] double velocityLimit(int index) const;
  /// At most this limit; 1 where nothing is known.
  [[nodiscard]] double approachVelocity(int index) const;
  /// Infinity where none is known.
  [[nodiscard]] double maximumAcceleration(int index) const;
};

/// The index of each actuator by its name.
std::map<std::string, int> actuatorIndexes(const MachineModel& machine);

/// The full key of the value of an actuator or a sensor. A name may itself look like a key, so a
/// bare form would not do.
std::string valueKey(const std::string& name);
std::string valueKey(const simulation::Actuator& actuator);

}  // namespace host
