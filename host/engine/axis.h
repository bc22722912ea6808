#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>

#include "host/engine/guard.h"
#include "host/engine/window.h"
#include "host/input/machinemodel.h"
#include "host/motion/backlog.h"
#include "host/motion/judgement.h"
#include "host/motion/pointcounts.h"
#include "simulation/machine.h"

namespace host {

/// The number that an integer or a float attribute holds. May be called in the control
/// cycle, as the next one.
double numberIn(const hal::DeviceAttrGeneric& attribute);
/// The four bytes that hold it, which tell any two values apart.
std::int32_t bitsIn(const hal::DeviceAttrGeneric& attribute);

struct Axis;

/// The command register of an axis, as the cycle saw it. Under the gate.
struct Register {
  const hal::DeviceAttrGeneric* attribute;
  /// What it held when the latest cycle began, and when it ended.
  std::int32_t firstBits;
  std::int32_t lastBits;
  Axis* axis;
};

/// One actuator of the machine, with all that is known of it.
struct Axis {
  Axis(int index_, const MachineModel& machine, std::int64_t cycleMs, TimedCommand& timeline_,
       const hal::DeviceAttrGeneric& command_, const hal::DeviceAttrGeneric* measured_)
      : index(index_),
        actuator(machine.actuator(index_)),
        velocityLimit(machine.velocityLimit(index_)),
        maximumAcceleration(machine.maximumAcceleration(index_)),
        timeline(&timeline_),
        command(&command_),
        measured(measured_),
        judge(machine, index_, cycleMs) {}

  /// In the machine's description.
  const int index;
  const simulation::Actuator& actuator;
  /// How fast it, and what follows it, may move; units a second.
  const double velocityLimit;
  /// Units a second squared; infinity where none is known.
  const double maximumAcceleration;
  TimedCommand* const timeline;
  const hal::DeviceAttrGeneric* const command;
  /// Null when no sensor bears its name.
  const hal::DeviceAttrGeneric* const measured;

  // Of the cycle, under the gate.

  /// Cycles that found the register otherwise than the one before had left it, and the
  /// latest of them.
  std::atomic<std::uint64_t> externalWrites{0};
  std::int64_t lastExternalMs = never;
  /// Set before the first cycle.
  const Register* written = nullptr;

  GuardRecord guard;

  // Of the command thread.

  Backlog backlog;
  /// Where the segment to the first point of the backlog begins.
  SegmentStart start;
  /// Of what was taken so far.
  Judge judge;
  /// What the timeline holds of it. Changes under the gate.
  Window window;
  /// The first cycle in the log that was not looked at yet.
  std::uint64_t nextCycle = 0;
  /// The latest cycle of which it was seen that the library had anything to do for it.
  std::int64_t lastActiveMs = never;
  /// The cycle that reached the last point.
  std::int64_t lastReachedMs = never;
  std::uint64_t externalWritesTold = 0;
  std::uint64_t touchesTold = 0;
  /// Nodes that it may need beyond those of its own.
  std::size_t borrowed = 0;
  /// The point that it is to hold once nothing waits; none at first, and when it
  /// was stopped on its way.
  std::optional<Point> target;
  /// The last point that waited when the engine was ended.
  std::optional<Point> lastLeft;
  PointCounts counts;
  /// Of the cleared points, those that waited when the engine was ended: a report has them as left.
  std::uint64_t leftAtEnd = 0;
  /// Until it is released, it takes nothing.
  bool isHeld = false;

  static constexpr std::int64_t never = std::numeric_limits<std::int64_t>::min() / 2;

  [[nodiscard]] bool isIdle() const { return backlog.empty() && window.items().empty(); }
  [[nodiscard]] Path path(std::int64_t cycleMs, std::int64_t latestMs) const {
    return {backlog, start,    actuator.interpolates,
            cycleMs, latestMs, {actuator.minimum, actuator.maximum}};
  }

  [[nodiscard]] double commanded() const;
  [[nodiscard]] std::optional<double> measuredValue() const;
  /// 0 without a sensor.
  [[nodiscard]] double trackingError() const;
};

}  // namespace host
