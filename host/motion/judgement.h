#pragma once

#include <cstdint>
#include <vector>

#include "host/motion/event.h"
#include "host/motion/segment.h"
#include "simulation/machine.h"

namespace host {

/// A segment that an interpolating actuator runs along, up to a time.
struct JudgedSegment {
  const SegmentStart& start;
  const Point& end;
  const Knot& knot;
  std::int64_t untilMs = 0;
  std::int64_t cycleMs = 1;
};

/// What is to be told of a segment: that it is steeper than the actuator may move, and that a
/// curve leaves its limits between the ends by more than rounding. `event` says whose it is.
std::vector<Event> judgeSegment(const simulation::Actuator& actuator, const JudgedSegment& judged,
                                const Event& event);

}  // namespace host
