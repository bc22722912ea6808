#include "host/input/machinemodel.h"

#include "host/base/attributekey.h"

namespace host {

std::map<std::string, int> actuatorIndexes(const MachineModel& machine) {
  std::map<std::string, int> indexes;
  for (const simulation::Actuator& actuator : machine.description.actuators) {
    indexes.emplace(actuator.name, static_cast<int>(indexes.size()));
  }
  return indexes;
}

std::string valueKey(const simulation::Actuator& actuator) {
  return subDevicePrefix + actuator.name + "/Value";
}

}  // namespace host
