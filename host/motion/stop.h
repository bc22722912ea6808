#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "host/motion/backlog.h"
#include "host/motion/curve.h"
#include "host/motion/segment.h"
#include "simulation/machine.h"

namespace host {

/// An interpolating axis that is to come to rest.
struct Moving {
  const simulation::Actuator& actuator;
  /// Units a second squared; infinite where none is known.
  double maximumAcceleration;
  /// Its own path, and where the segment to the first point begins.
  const Backlog& backlog;
  const SegmentStart& start;
  /// After the latest cycle: what the register holds, and the velocity of its last step.
  const SegmentStart& present;
};

/// The point where a stop brings the axis to rest: straight on in the present direction, at a
/// constant deceleration, which is the maximum one, or else takes `usualRampMs`. It lies beyond
/// no limit, and not beyond where the axis would have rested or turned on its own path; then the
/// deceleration is as large as that takes. None where the axis rests.
///
/// Looks at the first `Backlog::aheadPoints` points alone, and goes beyond none of them.
std::optional<Point> stopPoint(const Moving& axis, std::uint32_t batch);

/// How the way to such a point runs.
std::shared_ptr<const Curve> stopCurve();

}  // namespace host
