// Where axes come to rest, and where they begin anew.

#include <utility>

#include "host/engine/timelines.h"
#include "host/motion/limits.h"
#include "host/motion/stop.h"

namespace host {
namespace {

double floatOf(std::int32_t bits) {
  hal::AttrGeneric record;
  record.asInt = bits;
  return double{record.asFloat};
}

}  // namespace

bool Timelines::isOnItsWay(const Axis& axis) {
  return !axis.guard.isHeld() && !axis.backlog.isStopping() &&
         (!axis.backlog.empty() || heldBy(axis).items > 0);
}

std::optional<Point> Timelines::restOf(const Axis& axis, std::uint32_t batch) const {
  if (!axis.actuator.interpolates) {
    return std::nullopt;
  }
  const SegmentStart present = presentStart(axis);
  if (!axis.backlog.empty()) {
    return stopPoint({axis.actuator, axis.maximumAcceleration, axis.backlog, axis.start, present},
                     batch);
  }
  std::vector<Point> points;
  for (const TimedCommand::commandItem& item : copyOf(axis)) {
    const auto aheadMs = static_cast<std::int32_t>(item.time - stamp(cycles_.latestMs));
    points.push_back({cycles_.latestMs + aheadMs, item.value});
  }
  Backlog others;
  others.take(Rounds(std::move(points)), TimedCommand::MERGE);
  return stopPoint({axis.actuator, axis.maximumAcceleration, others, present, present}, batch);
}

void Timelines::removeOthers(const Axis& axis) {
  const std::size_t own = axis.window.items().size();
  if (heldBy(axis).items > own) {
    replace(axis, own);
  }
}

void Timelines::judge(Axis& axis, const Aim& aim) {
  const std::int64_t untilMs = std::min(cycles_.latestMs, axis.guard.heldSinceMs);
  if (aim.point.timeMs > untilMs) {
    axis.judge.follow(axis.start, aim, untilMs, listener_);
  }
}

void Timelines::restart(Axis& axis, std::uint32_t byBatch) const {
  axis.start = presentStart(axis);
  axis.judge.begin(cycles_.latestMs, axis.start, byBatch);
  axis.backlog.beginInMotion(axis.start.takesOver);
}

SegmentStart Timelines::presentStart(const Axis& axis) const {
  if (!axis.actuator.interpolates) {
    return {cycles_.latestMs, 0.0};
  }
  const hal::AttrGeneric present(axis.command->loadFloat());
  // What lies outside the limits is written back within them by the first pass.
  const double value = double{limited(axis.actuator, present).asFloat};
  if (!(present.asFloat == axis.timeline->currentValue)) {
    return restingAt(cycles_.latestMs + cycleMs_, value);
  }
  const Cycle& cycle = cycles_.log.at(cycles_.log.count() - 1);
  const double step = floatOf(axis.written->lastBits) - floatOf(axis.written->firstBits);
  return movingAt(cycles_.latestMs, value, step, cycle.timeMs - cycle.previousMs);
}

}  // namespace host
