#include "host/motion/excess.h"

#include <cmath>

#include "host/motion/limits.h"

namespace host {
namespace {

Event findMoved(const Intake& intake, const Rounds& points, Event fault) {
  for (const Point& point : points.first()) {
    const hal::AttrGeneric& asked = intake.batch.commands->value(point.index, intake.column);
    if (!isSameValue(asked, point.value)) {
      fault.reason = Fault::beyond;
      fault.point = point.index;
      fault.amount = commandedNumber(intake.actuator, asked);
      return fault;
    }
  }
  return fault;
}

/// The same of the segment to a point.
Event excessOf(const Intake& intake, const SegmentStart& start, const Point& end, const Knot& knot,
               double velocityLimit, Event fault) {
  const simulation::Actuator& actuator = intake.actuator;
  const Segment segment(start, end, knot);
  const auto lineMs =
      static_cast<double>(end.timeMs > start.timeMs ? end.timeMs - start.timeMs : intake.cycleMs);
  const double speed = segment.isLine()
                           ? std::abs(double{end.value.asFloat} - start.value) / lineMs * 1000.0
                           : segment.fastest(end.timeMs).amount;
  fault.point = end.index;
  if (!(speed <= velocityLimit * stepTolerance)) {
    fault.reason = Fault::tooFast;
    fault.amount = speed;
  }
  if (segment.isLine()) {
    return fault;
  }
  constexpr double strays = 1e-5;
  const double lowest = segment.lowest(end.timeMs).amount;
  const double highest = segment.highest(end.timeMs).amount;
  if (lowest < actuator.minimum - strays || highest > actuator.maximum + strays) {
    fault.reason = Fault::beyond;
    fault.amount = lowest < actuator.minimum - strays ? lowest : highest;
  }
  return fault;
}

}  // namespace

Event findExcess(const Intake& intake, const Rounds& points,
                 const std::optional<SegmentStart>& start, double velocityLimit) {
  const Event nothing{EventKind::refused, Fault::none, intake.latestMs, intake.number,
                      intake.actuatorIndex()};
  Event fault = findMoved(intake, points, nothing);
  const std::shared_ptr<const Curve> curve = intake.curve(points);
  std::optional<SegmentStart> from = start;
  for (const Point& point : points.first()) {
    if (fault.reason != Fault::none || !intake.actuator.interpolates) {
      return fault;
    }
    const Knot knot = curve != nullptr ? curve->at(point.index) : Knot();
    if (from) {
      fault = excessOf(intake, *from, point, knot, velocityLimit, nothing);
    }
    from = startAt(point, knot, intake.latestMs);
  }
  return fault;
}

}  // namespace host
