#include "host/motion/segment.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace host {

std::int64_t cyclesBetweenSamples(double magnitude) {
  constexpr std::int64_t mostCycles = 200;
  constexpr double ulpsPerCycle = 0.19;
  constexpr double ownRounding = 0.5;
  const auto value = static_cast<float>(magnitude);
  const double ulp =
      double{std::nextafter(value, std::numeric_limits<float>::infinity())} - double{value};
  const double allowedUlps = std::max(1e-5 / ulp, 2.0);
  const double cycles = (allowedUlps - ownRounding) / ulpsPerCycle;
  return static_cast<std::int64_t>(std::min(cycles, static_cast<double>(mostCycles)));
}

double valueOnLine(const SegmentStart& start, std::int64_t endMs, double endValue,
                   std::int64_t timeMs) {
  const double share =
      static_cast<double>(timeMs - start.timeMs) / static_cast<double>(endMs - start.timeMs);
  return start.value + (endValue - start.value) * share;
}

std::optional<Sample> sampleAfter(const SegmentStart& start, const Point& end, std::int64_t afterMs,
                                  std::int64_t cycleMs) {
  const double endValue = end.value.asFloat;
  const std::int64_t distanceMs =
      cyclesBetweenSamples(std::max(std::abs(start.value), std::abs(endValue))) * cycleMs;
  const std::int64_t passed = std::max<std::int64_t>(afterMs - start.timeMs, 0) / distanceMs + 1;
  const std::int64_t timeMs = start.timeMs + passed * distanceMs;
  if (timeMs >= end.timeMs) {
    return std::nullopt;
  }
  return Sample{timeMs, static_cast<float>(valueOnLine(start, end.timeMs, endValue, timeMs))};
}

double speedOf(const SegmentStart& start, std::int64_t endMs, double endValue,
               std::int64_t cycleMs) {
  const std::int64_t durationMs = endMs > start.timeMs ? endMs - start.timeMs : cycleMs;
  return std::abs(endValue - start.value) / static_cast<double>(durationMs) * 1000.0;
}

}  // namespace host
