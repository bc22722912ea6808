#pragma once

#include <cstddef>
#include <vector>

#include "simulation/machine.h"
#include "timedcommandmanager/timedcommandmanager.h"

namespace bench {

/// How the actuators of a rig go from command to command.
enum class Interpolation { linear, step };

/// A machine of actuators alone, its table of timelines, and a node pool warmed
/// for so many items.
class Rig {
 public:
  Rig(std::size_t actuators, Interpolation interpolation, std::size_t queuedItems);

  [[nodiscard]] std::size_t size() const { return commands.actuatorCommands.size(); }
  [[nodiscard]] TimedCommand& timeline(std::size_t actuator) {
    return *commands.actuatorCommands[actuator];
  }

 private:
  simulation::Machine machine_;

 public:
  TimedCommandManager commands;
};

/// `count` stamps, `step` apart.
std::vector<unsigned int> risingStamps(std::size_t count, unsigned int first, unsigned int step);

/// A list of one command for each stamp.
CommandList commandsAt(const std::vector<unsigned int>& stamps);

}  // namespace bench
