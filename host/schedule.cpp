#include "host/schedule.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace host {
namespace {

/// What a joint without a velocity limit is taken to move, a second.
constexpr double unlimitedVelocity = 1.0;

struct Approach {
  std::string joint;
  double distance = 0.0;
  double velocity = unlimitedVelocity;
  bool limited = false;

  [[nodiscard]] double milliseconds() const { return std::ceil(distance / velocity * 1000.0); }
};

const simulation::Actuator& actuatorOf(const Robot& robot, const Motion& motion,
                                       std::size_t column) {
  return robot.machine.actuators[static_cast<std::size_t>(motion.actuators[column])];
}

void checkThatItCanMove(const Motion& motion, std::size_t column,
                        const simulation::Actuator& actuator) {
  for (std::size_t point = 0; point < motion.times.size(); ++point) {
    const float target =
        std::clamp(motion.position(point, column), actuator.minimum, actuator.maximum);
    if (actuator.maximumVelocity == 0 && target != std::get<float>(actuator.value)) {
      throw InputError(
          motion.path, motion.places[point],
          fmt::format("joint '{}' cannot move there: its velocity limit is 0", actuator.name));
    }
  }
}

/// The joint that needs longest from where it stands to the first point.
Approach slowestApproach(const Robot& robot, const Motion& motion) {
  Approach slowest;
  for (std::size_t column = 0; column < motion.actuators.size(); ++column) {
    const simulation::Actuator& actuator = actuatorOf(robot, motion, column);
    checkThatItCanMove(motion, column, actuator);
    const float first = std::clamp(motion.position(0, column), actuator.minimum, actuator.maximum);
    Approach approach;
    approach.joint = actuator.name;
    approach.distance = std::abs(static_cast<double>(first) - std::get<float>(actuator.value));
    approach.limited = std::isfinite(actuator.maximumVelocity);
    if (approach.limited && actuator.maximumVelocity > 0) {
      approach.velocity = actuator.maximumVelocity;
    }
    if (approach.milliseconds() > slowest.milliseconds()) {
      slowest = approach;
    }
  }
  return slowest;
}

std::string leadReason(const Approach& slowest, const RunOptions& options) {
  if (slowest.distance == 0.0) {
    return "every joint stands at its first point";
  }
  const std::string need =
      fmt::format("{} has {:.4g} to go, {} {:.4g} a second", slowest.joint, slowest.distance,
                  slowest.limited ? "at most" : "without a limit, at", slowest.velocity);
  return options.leadMs && *options.leadMs < slowest.milliseconds()
             ? fmt::format("too short: {}", need)
             : need;
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
  const double neededMs = slowest.milliseconds();
  if (neededMs > longestLeadMs && !options.leadMs) {
    throw InputError(motion.path, motion.places.front(),
                     fmt::format("joint '{}' would need {:.0f} s to the first point", slowest.joint,
                                 neededMs / 1000.0));
  }
  Schedule schedule;
  schedule.startTick = options.startTick;
  schedule.cycleMs = options.cycleMs;
  const auto wanted = options.leadMs.value_or(static_cast<std::uint32_t>(neededMs));
  const std::uint32_t cycles = (wanted + options.cycleMs - 1) / options.cycleMs;
  schedule.leadMs = std::max(cycles, 1U) * options.cycleMs;
  schedule.leadReason = leadReason(slowest, options);
  return schedule;
}

}  // namespace host
