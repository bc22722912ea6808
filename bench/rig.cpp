#include "bench/rig.h"

#include <string>

#include "bench/nodes.h"

namespace bench {

namespace {

simulation::MachineDescription describe(std::size_t actuators, Interpolation interpolation) {
  simulation::MachineDescription description;
  for (std::size_t i = 0; i < actuators; ++i) {
    simulation::Actuator actuator;
    actuator.name = "Actuator" + std::to_string(i);
    actuator.interpolates = interpolation == Interpolation::linear;
    description.actuators.push_back(actuator);
  }
  return description;
}

}  // namespace

Rig::Rig(std::size_t actuators, Interpolation interpolation, std::size_t queuedItems)
    : machine_("", describe(actuators, interpolation)) {
  emptyNodePool();
  commands.initTimedCommand(0);
  warmNodePool(queuedItems);
}

std::vector<unsigned int> risingStamps(std::size_t count, unsigned int first, unsigned int step) {
  std::vector<unsigned int> stamps(count);
  for (unsigned int& stamp : stamps) {
    stamp = first;
    first += step;
  }
  return stamps;
}

CommandList commandsAt(const std::vector<unsigned int>& stamps) {
  CommandList commands;
  for (const unsigned int stamp : stamps) {
    commands.emplace_back(hal::AttrGeneric(1.0F), stamp);
  }
  return commands;
}

}  // namespace bench
