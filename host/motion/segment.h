#pragma once

#include <cstdint>
#include <optional>

#include "host/motion/point.h"

namespace host {

/// Where the straight line to the next point begins.
struct SegmentStart {
  std::int64_t timeMs = 0;
  double value = 0.0;
};

/// A value on the line of a segment.
struct Sample {
  std::int64_t timeMs = 0;
  float value = 0.0F;
};

/// How many cycles may lie between two samples of a line whose values do not exceed this
/// magnitude.
///
/// The library goes on from what it wrote, in single precision. A rounding of half a unit
/// in the last place (ulp) each cycle, always the same way, leads at most n/(2e) ulp away
/// from the line over n cycles: each step aims at the end anew. With the rounding of the
/// samples themselves that is 0.5 + 0.184 n ulp, and shall be at most 1e-5, or 2 ulp where
/// those are more.
std::int64_t cyclesBetweenSamples(double magnitude);

/// The value of the line at a time.
double valueOnLine(const SegmentStart& start, std::int64_t endMs, double endValue,
                   std::int64_t timeMs);

/// The first sample of the segment from `start` to `end` that lies behind `afterMs` and
/// before the end; none where the segment is short.
std::optional<Sample> sampleAfter(const SegmentStart& start, const Point& end, std::int64_t afterMs,
                                  std::int64_t cycleMs);

/// The speed that a segment asks for, in units a second. What is already past is to be
/// reached in one cycle.
double speedOf(const SegmentStart& start, std::int64_t endMs, double endValue,
               std::int64_t cycleMs);

}  // namespace host
