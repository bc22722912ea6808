#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "host/motion/backlog.h"
#include "host/motion/density.h"
#include "host/motion/event.h"
#include "host/motion/pointcounts.h"
#include "host/motion/scheduledbatch.h"
#include "simulation/machine.h"

namespace host {

/// The largest magnitude of a velocity or an acceleration.
constexpr float mostDerivative = 1e15F;

/// One batch on its way into the backlog of one axis.
struct Intake {
  const ScheduledBatch& batch;
  std::uint32_t number = 0;
  /// The batch's column for this actuator.
  std::size_t column = 0;
  const simulation::Actuator& actuator;
  /// Machine time of the latest cycle.
  std::int64_t latestMs = 0;
  std::int64_t cycleMs = 1;

  [[nodiscard]] int actuatorIndex() const { return batch.commands->actuators[column]; }
  [[nodiscard]] TimedCommand::commandType mode() const { return batch.commands->mode; }

  /// The points of the axis, within its limits, in the order in which they are to wait: the
  /// later one of two with the same time first.
  [[nodiscard]] Rounds points() const;

  /// How the segments to these points run; null where all are lines.
  [[nodiscard]] std::shared_ptr<const Curve> curve(const Rounds& rounds) const;

  /// Why these points cannot be taken: an event `refused`, with no reason where they can.
  /// `present` is what the register holds; `density` is what results.
  [[nodiscard]] Event findFault(const Rounds& points, const Backlog& backlog,
                                const hal::AttrGeneric& present, Density& density) const;

  /// Tells that these points are taken; tells of those that are late or limited, and counts
  /// them, and of a last one that has a velocity.
  void tellTaken(const Rounds& points, PointCounts& counts, Listener& listener) const;

 private:
  [[nodiscard]] Knot messageKnot(std::size_t point) const;
  void tellUnstopped(const Rounds& points, Listener& listener) const;
};

/// The last cycle before a moment.
constexpr std::int64_t cycleBefore(std::int64_t momentMs, std::int64_t cycleMs) {
  const std::int64_t behind = momentMs + cycleMs - 1;
  return (behind - (behind % cycleMs + cycleMs) % cycleMs) - cycleMs;
}

/// Tells one event for each run of points that follow each other in their batch.
void tellRuns(Event event, const std::vector<Point>& points, Listener& listener);

/// The same of what was removed from a backlog, with one event for each run in rounds; counts
/// it.
void tellCleared(Event event, const Backlog::Removed& removed, PointCounts& counts,
                 Listener& listener);

}  // namespace host
