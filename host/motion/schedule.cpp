#include "host/motion/schedule.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "host/base/errorcollector.h"
#include "host/motion/limits.h"

namespace host {
namespace {

/// What a joint without a velocity limit is taken to move, a second.
constexpr double unlimitedVelocity = 1.0;

struct Approach {
  std::string joint;
  double distance = 0.0;
  double velocity = unlimitedVelocity;
  bool limited = false;
  const CommandBatch* batch = nullptr;

  [[nodiscard]] double milliseconds() const { return std::ceil(distance / velocity * 1000.0); }
};

void checkThatItCanMove(const CommandBatch& batch, std::size_t column,
                        const simulation::Actuator& actuator) {
  if (actuator.maximumVelocity != 0) {
    return;
  }
  for (std::size_t point = 0; point < batch.times.size(); ++point) {
    const float target = limited(actuator, batch.value(point, column)).asFloat;
    if (target != std::get<float>(actuator.value)) {
      throw UserError(
          batch.pointsPath, batch.locations[point],
          fmt::format("joint '{}' cannot move there: its velocity limit is 0", actuator.name));
    }
  }
}

Approach approachOf(const CommandBatch& batch, std::size_t column,
                    const simulation::Actuator& actuator) {
  const float first = limited(actuator, batch.value(0, column)).asFloat;
  Approach approach;
  approach.joint = actuator.name;
  approach.distance = std::abs(double{first} - double{std::get<float>(actuator.value)});
  approach.limited = std::isfinite(actuator.maximumVelocity);
  if (approach.limited && actuator.maximumVelocity > 0) {
    approach.velocity = actuator.maximumVelocity;
  }
  approach.batch = &batch;
  return approach;
}

/// The joint that needs longest from where it stands to its first point.
Approach slowestApproach(const MachineModel& machine, const std::vector<CommandBatch>& batches) {
  Approach slowest;
  ErrorCollector errors;
  for (const CommandBatch& batch : batches) {
    for (std::size_t column = 0; column < batch.actuators.size(); ++column) {
      const auto& actuator = machine.actuator(batch.actuators[column]);
      if (!actuator.interpolates) {
        continue;
      }
      errors.attempt([&] { checkThatItCanMove(batch, column, actuator); });
      const Approach approach = batch.atMs ? Approach() : approachOf(batch, column, actuator);
      if (approach.milliseconds() > slowest.milliseconds()) {
        slowest = approach;
      }
    }
  }
  errors.throwIfAny();
  return slowest;
}

std::string approachReason(const Approach& slowest, const Timing& timing) {
  if (slowest.distance == 0.0) {
    return "nothing has to be approached first";
  }
  const std::string need =
      fmt::format("{} has {:.4g} to go, {} {:.4g} a second", slowest.joint, slowest.distance,
                  slowest.limited ? "at most" : "without a limit, at", slowest.velocity);
  return timing.approachMs && *timing.approachMs < slowest.milliseconds()
             ? fmt::format("too short: {}", need)
             : need;
}

}  // namespace

Schedule planSchedule(const MachineModel& machine, const std::vector<CommandBatch>& batches,
                      const Timing& timing) {
  const Approach slowest = slowestApproach(machine, batches);
  constexpr double longestApproachMs = 7e7;
  const double neededMs = slowest.milliseconds();
  if (neededMs > longestApproachMs && !timing.approachMs) {
    throw UserError(slowest.batch->pointsPath, slowest.batch->locations.front(),
                    fmt::format("joint '{}' would need {:.0f} s to the first point", slowest.joint,
                                neededMs / 1000.0));
  }
  Schedule schedule;
  schedule.cycleMs = timing.cycleMs;
  const auto wanted = timing.approachMs.value_or(static_cast<std::uint32_t>(neededMs));
  const std::uint32_t cycles = (wanted + timing.cycleMs - 1) / timing.cycleMs;
  schedule.approachMs = std::max(cycles, 1U) * timing.cycleMs;
  schedule.approachReason = approachReason(slowest, timing);
  return schedule;
}

}  // namespace host
