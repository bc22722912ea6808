#include "host/input/machinemodel.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "host/base/attributekey.h"

namespace host {

double MachineModel::velocityLimit(int index) const {
  auto limit = double{actuator(index).maximumVelocity};
  for (const Follower& follower : followers) {
    if (follower.actuator == index && follower.multiplier != 0.0) {
      limit = std::min(limit, follower.maximumVelocity / std::abs(follower.multiplier));
    }
  }
  return limit;
}

double MachineModel::approachVelocity(int index) const {
  const double most = velocityLimit(index);
  const auto given = approachVelocities.find(index);
  if (given != approachVelocities.end()) {
    return std::min(given->second, most);
  }
  return std::isfinite(most) ? most / 4.0 : 1.0;
}

double MachineModel::maximumAcceleration(int index) const {
  const auto given = maximumAccelerations.find(index);
  return given == maximumAccelerations.end() ? std::numeric_limits<double>::infinity()
                                             : given->second;
}

std::map<std::string, int> actuatorIndexes(const MachineModel& machine) {
  std::map<std::string, int> indexes;
  for (const simulation::Actuator& actuator : machine.description.actuators) {
    indexes.emplace(actuator.name, static_cast<int>(indexes.size()));
  }
  return indexes;
}

std::string valueKey(const std::string& name) {
  return subDevicePrefix + name + "/Value";
}

std::string valueKey(const simulation::Actuator& actuator) {
  return valueKey(actuator.name);
}

}  // namespace host
