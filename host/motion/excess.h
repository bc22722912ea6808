#pragma once

#include <optional>

#include "host/motion/intake.h"
#include "host/motion/segment.h"

namespace host {

/// Where a batch asks too much of an axis, by itself: an event `refused` for the first value or
/// curve that lies beyond the limits (`beyond`) or segment that is faster than `velocityLimit`,
/// in units a second (`tooFast`), with the value or the speed; with no reason where there is
/// none. Without a start, the segment to the first point is not looked at.
Event findExcess(const Intake& intake, const Rounds& points,
                 const std::optional<SegmentStart>& start, double velocityLimit);

}  // namespace host
