#include "host/motion/schedule.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "host/base/errorcollector.h"
#include "host/motion/limits.h"

namespace host {
namespace {

/// Of the quintic from rest to rest, over a distance and a time of 1.
constexpr double peakVelocity = 1.875;
constexpr double peakAcceleration = 5.7735026919;

struct Approach {
  std::string joint;
  double distance = 0.0;
  /// Units a second: to go at, and at most.
  double velocity = 1.0;
  double limit = std::numeric_limits<double>::infinity();
  /// At most, units a second squared.
  double acceleration = std::numeric_limits<double>::infinity();
  /// Until the first point, from the start of the motion.
  double leftMs = 0.0;
  const CommandBatch* batch = nullptr;

  [[nodiscard]] double neededMs() const {
    return std::ceil(1000.0 * approachSeconds(distance, velocity, acceleration));
  }
  /// What has to be added before the start of the motion.
  [[nodiscard]] double addedMs() const { return neededMs() - leftMs; }
  [[nodiscard]] bool isTooShort(double addedMs) const {
    return (addedMs + leftMs) * limit < 1000.0 * peakVelocity * distance;
  }
  [[nodiscard]] bool isTooSudden(double addedMs) const {
    const double seconds = (addedMs + leftMs) / 1000.0;
    return seconds * seconds * acceleration < peakAcceleration * distance;
  }
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

Approach approachOf(const CommandBatch& batch, std::size_t column, const MachineModel& machine) {
  const simulation::Actuator& actuator = machine.actuator(batch.actuators[column]);
  const float first = limited(actuator, batch.value(0, column)).asFloat;
  Approach approach;
  approach.joint = actuator.name;
  approach.distance = std::abs(double{first} - double{std::get<float>(actuator.value)});
  approach.limit = machine.velocityLimit(batch.actuators[column]);
  approach.velocity = machine.approachVelocity(batch.actuators[column]);
  approach.acceleration = machine.maximumAcceleration(batch.actuators[column]);
  approach.leftMs = static_cast<double>(batch.fromMs + batch.times.front());
  approach.batch = &batch;
  return approach;
}

/// From where joints stand to their first points.
std::vector<Approach> approachesOf(const MachineModel& machine,
                                   const std::vector<CommandBatch>& batches) {
  std::vector<Approach> approaches;
  ErrorCollector errors;
  for (const CommandBatch& batch : batches) {
    for (std::size_t column = 0; column < batch.actuators.size(); ++column) {
      const auto& actuator = machine.actuator(batch.actuators[column]);
      if (!actuator.interpolates) {
        continue;
      }
      errors.attempt([&] { checkThatItCanMove(batch, column, actuator); });
      const Approach approach = batch.atMs ? Approach() : approachOf(batch, column, machine);
      if (approach.distance > 0.0) {
        approaches.push_back(approach);
      }
    }
  }
  errors.throwIfAny();
  return approaches;
}

std::string approachReason(const Approach& slowest) {
  return fmt::format("{} has {:.4g} to go, at {:.4g} a second at most", slowest.joint,
                     slowest.distance, slowest.velocity);
}

/// Of an approach of this length.
std::string reasonOf(const std::vector<Approach>& approaches, std::uint32_t approachMs) {
  for (const Approach& approach : approaches) {
    if (approach.isTooShort(approachMs)) {
      return fmt::format("too short: {} has {:.4g} to go, and its limit is {:.4g} a second",
                         approach.joint, approach.distance, approach.limit);
    }
    if (approach.isTooSudden(approachMs)) {
      return fmt::format("too short: {} has {:.4g} to go, and its limit is {:.4g} a second squared",
                         approach.joint, approach.distance, approach.acceleration);
    }
  }
  return "as requested";
}

}  // namespace

double approachSeconds(double distance, double velocity, double acceleration) {
  if (distance == 0.0) {
    return 0.0;
  }
  constexpr double rampSeconds = 0.25;
  return std::max(
      peakVelocity * distance / velocity,
      std::sqrt(peakAcceleration * distance / std::min(velocity / rampSeconds, acceleration)));
}

Schedule planSchedule(const MachineModel& machine, const std::vector<CommandBatch>& batches,
                      const Timing& timing) {
  const std::vector<Approach> approaches = approachesOf(machine, batches);
  const auto slowest = std::max_element(
      approaches.begin(), approaches.end(),
      [](const Approach& one, const Approach& other) { return one.addedMs() < other.addedMs(); });
  const bool hasSlowest = slowest != approaches.end();
  const double neededMs = hasSlowest ? std::max(slowest->addedMs(), 0.0) : 0.0;
  constexpr double longestApproachMs = 7e7;
  if (neededMs > longestApproachMs && !timing.approachMs) {
    throw UserError(slowest->batch->pointsPath, slowest->batch->locations.front(),
                    fmt::format("joint '{}' would need {:.0f} s to the first point", slowest->joint,
                                neededMs / 1000.0));
  }
  Schedule schedule;
  schedule.cycleMs = timing.cycleMs;
  const auto wanted = timing.approachMs.value_or(static_cast<std::uint32_t>(neededMs));
  const std::uint32_t cycles = (wanted + timing.cycleMs - 1) / timing.cycleMs;
  schedule.approachMs = std::max(cycles, 1U) * timing.cycleMs;
  schedule.approachReason = !hasSlowest         ? "nothing to approach"
                            : timing.approachMs ? reasonOf(approaches, schedule.approachMs)
                                                : approachReason(*slowest);
  return schedule;
}

}  // namespace host
