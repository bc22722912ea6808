#include "host/engine/guard.h"

#include <algorithm>
#include <cmath>

#include "host/base/clocks.h"
#include "host/motion/limits.h"

namespace host {
namespace {

void write(hal::DeviceAttrGeneric& command, double value) noexcept {
  command.storeFloat(static_cast<float>(value));
}

}  // namespace

void Guard::add(const MachineModel& machine, int actuator, hal::DeviceAttrGeneric& command,
                const std::int32_t& before, GuardRecord& record) {
  if (mode_ != GuardMode::off && machine.actuator(actuator).interpolates) {
    watched_.push_back({&command, &before, machine.velocityLimit(actuator) / msPerSecond, false});
    guarded_.push_back(
        {&machine.actuator(actuator), machine.maximumAcceleration(actuator), &record});
  }
}

void Guard::check(std::int64_t timeMs, std::int64_t stepMs) noexcept {
  const double passedMs = static_cast<double>(stepMs) * stepTolerance;
  for (std::size_t i = 0; i < watched_.size(); ++i) {
    const Watched& watched = watched_[i];
    if (watched.isRamping) {
      goOn(i, timeMs);
      continue;
    }
    const float wanted = watched.command->loadFloat();
    const double step = std::abs(double{wanted} - double{watched.before()});
    if (!(step <= watched.maximumVelocity * passedMs)) {
      touch(i, wanted, timeMs, stepMs);
    }
  }
}

/// What is no number compares as exceeding.
void Guard::touch(std::size_t index, float wanted, std::int64_t timeMs,
                  std::int64_t stepMs) noexcept {
  Watched& watched = watched_[index];
  Guarded& guarded = guarded_[index];
  const auto passedMs = static_cast<double>(stepMs);
  const double step = double{wanted} - double{watched.before()};
  const double allowed = watched.maximumVelocity * passedMs;
  if (std::abs(step) <= allowed * stepTolerance + stepUlps * ulpOf(wanted, watched.before())) {
    return;
  }
  GuardRecord& record = *guarded.record;
  record.latestMs = timeMs;
  record.speed = std::abs(step) / passedMs * msPerSecond;
  record.touches.store(record.touches.load(std::memory_order_relaxed) + 1,
                       std::memory_order_relaxed);
  if (mode_ == GuardMode::warn) {
    return;
  }
  const bool isOrdered = std::isfinite(step);
  const double velocity = isOrdered ? std::copysign(watched.maximumVelocity, step) : 0.0;
  guarded.written = static_cast<float>(double{watched.before()} + velocity * passedMs);
  write(*watched.command, double{guarded.written});
  const simulation::Actuator& actuator = *guarded.actuator;
  guarded.ramp = rampToRest(double{guarded.written}, velocity, guarded.maximumAcceleration,
                            actuator.minimum, actuator.maximum);
  guarded.rampMs = timeMs;
  watched.isRamping = true;
  record.isRamping = true;
  record.isCleared = false;
  record.heldSinceMs = std::min(record.heldSinceMs, timeMs);
}

/// Whatever the library wrote. Where others wrote the register, it rests there.
void Guard::goOn(std::size_t index, std::int64_t timeMs) noexcept {
  Watched& watched = watched_[index];
  Guarded& guarded = guarded_[index];
  const auto elapsedMs = static_cast<double>(timeMs - guarded.rampMs);
  GuardRecord& record = *guarded.record;
  if (!(watched.before() == guarded.written)) {
    guarded.ramp = {double{watched.before()}, 0.0, 0.0};
  }
  guarded.written = static_cast<float>(guarded.ramp.at(elapsedMs));
  write(*watched.command, double{guarded.written});
  if (elapsedMs >= guarded.ramp.durationMs && record.isCleared) {
    watched.isRamping = false;
    record.isRamping = false;
  }
}

}  // namespace host
