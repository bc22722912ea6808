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

/// The density around these points, which are in time order, once this backlog has taken them
/// with this mode after the cycle at `latestCycleMs`. Cycles lie on the grid of `cycleMs`. Costs
/// a search in the backlog for each point.
Density densityAround(const std::vector<Point>& points, const Backlog& backlog,
                      TimedCommand::commandType mode, std::int64_t latestCycleMs,
                      std::int64_t cycleMs);

}  // namespace host
