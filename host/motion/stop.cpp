#include "host/motion/stop.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "host/base/clocks.h"
#include "host/motion/limits.h"
#include "host/motion/ramp.h"

namespace host {
namespace {

/// How far the axis may go on: to where its own path rests or turns, at most to `enough`.
double ownRest(const Moving& axis, double direction, double enough) {
  SegmentStart start = axis.start;
  const std::int64_t latestMs = axis.present.timeMs;
  const std::size_t count = std::min(axis.backlog.size(), Backlog::aheadPoints);
  double rest = axis.present.value;
  for (std::size_t i = 0; i < count; ++i) {
    const Point& end = axis.backlog[i];
    const Knot knot = axis.backlog.knotOf(end);
    const std::optional<double> found = Segment(start, end, knot).restFrom(latestMs, direction);
    rest = found.value_or(double{end.value.asFloat});
    if (found || (rest - enough) * direction >= 0.0) {
      break;
    }
    start = startAt(end, knot, latestMs);
  }
  return (rest - axis.present.value) * direction > 0.0 ? rest : axis.present.value;
}

/// The value in single precision, no further in this direction.
float notBeyond(double value, double direction) {
  const auto single = static_cast<float>(value);
  return (double{single} - value) * direction > 0.0
             ? std::nextafter(single, static_cast<float>(-direction) * mostInterpolated)
             : single;
}

}  // namespace

std::optional<Point> stopPoint(const Moving& axis, std::uint32_t batch) {
  const simulation::Actuator& actuator = axis.actuator;
  const double from = axis.present.value;
  const double velocity = axis.present.velocity / msPerSecond;
  const double direction = std::copysign(1.0, velocity);
  const auto rampWithin = [&](double farthest) {
    return rampToRest(from, velocity, axis.maximumAcceleration, farthest, farthest);
  };
  double farthest = direction > 0.0 ? actuator.maximum : actuator.minimum;
  const double rest = ownRest(axis, direction, rampWithin(farthest).end());
  farthest = direction > 0.0 ? std::min(farthest, rest) : std::max(farthest, rest);
  const Ramp ramp = rampWithin(farthest);
  if (!(ramp.durationMs > 0.0)) {
    return std::nullopt;
  }
  Point point;
  point.timeMs = axis.present.timeMs + static_cast<std::int64_t>(std::ceil(ramp.durationMs));
  point.value = limited(actuator, hal::AttrGeneric(notBeyond(ramp.end(), direction)));
  point.batch = batch;
  point.isOfHost = true;
  return point;
}

std::shared_ptr<const Curve> stopCurve() {
  static const auto ramp = std::make_shared<const Curve>(
      std::vector<Knot>{{Shape::ramp, Knot::Known::acceleration, 0.0F, 0.0F}}, 0, false);
  return ramp;
}

}  // namespace host
