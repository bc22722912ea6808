#pragma once

#include <cstddef>
#include <vector>

#include "simulation/machine.h"

namespace simulation {

/// The attributes of an actuator and of a sensor, in the order of their indexes. "Value" comes
/// first.
std::vector<Attribute> attributesOf(const Actuator& actuator);
std::vector<Attribute> attributesOf(const Sensor& sensor);

/// What a valid description needs in shared memory.
struct PoolSize {
  std::size_t attributes = 0;
  std::size_t textBytes = 0;
};

/// Throws `Error` with what is wrong and what would be right.
PoolSize checkDescription(const MachineDescription& description);

}  // namespace simulation
