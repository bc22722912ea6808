#pragma once

#include <cstddef>
#include <cstdint>

#include "host/motion/backlog.h"

namespace host {

/// How close the points of one axis lie.
struct Density {
  /// The most that are due within two successive cycles.
  std::size_t inTwoCycles = 0;
  /// The most that a window has to cover at once.
  std::size_t inWindow = 0;
};

constexpr std::uint64_t mostCounted = 4096;

/// How far a window reaches behind the next cycle, at least.
constexpr std::int64_t windowMs = 100;

/// The density around these points once this backlog has taken them with this mode after the
/// cycle at `latestCycleMs`. Cycles lie on the grid of `cycleMs`. Costs a search in the backlog
/// for each point.
///
/// Of more than `mostCounted` points in rounds, it looks at as many rounds as differ in their
/// place on the grid, and takes the backlog to be everywhere as dense as it is anywhere: an
/// upper bound.
Density densityAround(const Rounds& points, const Backlog& backlog, TimedCommand::commandType mode,
                      std::int64_t latestCycleMs, std::int64_t cycleMs);

}  // namespace host
