#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/motion/backlog.h"

namespace host {

/// How close the points of one axis lie.
struct Density {
  /// The most that are due within two successive cycles.
  std::size_t inTwoCycles = 0;
  /// The most that a window has to cover at once.
  std::size_t inWindow = 0;
};

/// How far a window reaches behind the next cycle, at least.
constexpr std::int64_t windowMs = 100;

/// The density around these points, in time order, if they came to this backlog with this
/// mode after the cycle at `latestCycleMs`. Cycles follow on the grid of `cycleMs`. Takes
/// the time of a search in the backlog for each point.
Density densityAround(const std::vector<Point>& points, const Backlog& backlog,
                      TimedCommand::commandType mode, std::int64_t latestCycleMs,
                      std::int64_t cycleMs);

}  // namespace host
