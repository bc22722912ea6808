#include "host/schedule.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace host {
namespace {

struct Approach {
  std::string joint;
  double distance = 0.0;
  double velocity = 0.0;
  double seconds = 0.0;
};

/// The joint that needs longest from where it stands to the first point.
Approach slowestApproach(const Robot& robot, const Motion& motion) {
  Approach slowest;
  for (std::size_t column = 0; column < motion.actuators.size(); ++column) {
    const auto index = static_cast<std::size_t>(motion.actuators[column]);
    const simulation::Actuator& actuator = robot.machine.actuators[index];
    const double present = std::get<float>(actuator.value);
    const double first = std::clamp(motion.position(0, column), actuator.minimum, actuator.maximum);
    const double distance = std::abs(first - present);
    if (distance == 0.0) {
      continue;
    }
    if (actuator.maximumVelocity == 0) {
      throw InputError(
          motion.path, motion.places.front(),
          fmt::format("joint '{}' cannot move there: its velocity limit is 0", actuator.name));
    }
    const double seconds = distance / static_cast<double>(actuator.maximumVelocity);
    if (seconds > slowest.seconds) {
      slowest = {actuator.name, distance, actuator.maximumVelocity, seconds};
    }
  }
  return slowest;
}

/// The items queued ahead must reach over two cycles, or the actuator would
/// wait for the host.
void checkDensity(const Motion& motion, std::uint32_t cycleMs) {
  constexpr std::size_t reach = windowItems - 1;
  for (std::size_t point = reach; point < motion.times.size(); ++point) {
    if (motion.times[point] - motion.times[point - reach] < 2 * cycleMs) {
      throw InputError(motion.path, motion.places[point],
                       fmt::format("{} points within two cycles of {} ms are more than the host "
                                   "queues ahead; use a shorter --cycle",
                                   windowItems, cycleMs));
    }
  }
}

}  // namespace

Schedule planSchedule(const Robot& robot, const Motion& motion, const RunOptions& options) {
  checkDensity(motion, options.cycleMs);
  const Approach slowest = slowestApproach(robot, motion);
  constexpr double longestLeadMs = 7e7;
  const double neededMs = std::ceil(slowest.seconds * 1000.0);
  if (neededMs > longestLeadMs && !options.leadMs) {
    throw InputError(motion.path, motion.places.front(),
                     fmt::format("joint '{}' would need {:.0f} s to the first point", slowest.joint,
                                 slowest.seconds));
  }
  Schedule schedule;
  schedule.startTick = options.startTick;
  schedule.cycleMs = options.cycleMs;
  const auto wanted = options.leadMs.value_or(static_cast<std::uint32_t>(neededMs));
  const std::uint32_t cycles = (wanted + options.cycleMs - 1) / options.cycleMs;
  schedule.leadMs = std::max(cycles, 1U) * options.cycleMs;
  if (options.leadMs) {
    schedule.leadReason = "as asked for";
  } else if (slowest.seconds > 0) {
    schedule.leadReason = fmt::format("{} has {:.4g} to go, at most {:.4g} a second", slowest.joint,
                                      slowest.distance, slowest.velocity);
  } else {
    schedule.leadReason = "every joint stands at its first point";
  }
  return schedule;
}

}  // namespace host
