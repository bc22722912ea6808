#include "host/motion/density.h"

#include <algorithm>
#include <limits>
#include <numeric>

namespace host {
namespace {

constexpr std::int64_t always = std::numeric_limits<std::int64_t>::min();

class Counter {
 public:
  Counter(const Rounds& points, const Backlog& backlog, TimedCommand::commandType mode)
      : points_(points), backlog_(backlog), kept_(Backlog::kept(points, mode)) {}

  /// An upper bound: what the mode clears is counted as well.
  [[nodiscard]] std::size_t all() const {
    return points_.size() + backlog_.size() + backlog_.countInRounds();
  }
  [[nodiscard]] bool countsEach() const {
    return !points_.isRepeated() || points_.size() <= mostCounted;
  }

  [[nodiscard]] std::size_t countDue(std::int64_t beginMs, std::int64_t endMs) const {
    const std::size_t own = points_.findFirst(endMs + 1) - points_.findFirst(beginMs);
    if (countsEach()) {
      return own + backlog_.countDue(kept_, beginMs, endMs);
    }
    return own + (kept_.firstMs > kept_.lastMs || backlog_.empty() ? 0 : backlog_.densest());
  }

 private:
  const Rounds& points_;
  const Backlog& backlog_;
  const Backlog::Kept kept_;
};

/// The positions of the points to look at: all, or all that lie otherwise on the grid.
struct Positions {
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
};
Positions rangeOf(const Rounds& points, const Counter& counter, std::int64_t latestMs,
                  std::int64_t cycleMs) {
  if (counter.countsEach()) {
    return {0, points.size()};
  }
  const std::int64_t placesOnGrid = cycleMs / std::gcd(cycleMs, points.periodMs());
  const auto rounds = static_cast<std::uint64_t>(placesOnGrid) + 2;
  // Of those that are due already, one stands for all.
  const std::uint64_t due = points.findFirst(latestMs + 1);
  const std::uint64_t begin = due > 0 ? due - 1 : 0;
  return {begin, std::min(points.size(), begin + rounds * points.first().size())};
}

}  // namespace

Density densityAround(const Rounds& points, const Backlog& backlog, TimedCommand::commandType mode,
                      std::int64_t latestCycleMs, std::int64_t cycleMs) {
  const Counter counter(points, backlog, mode);
  // So few need no look at their times.
  constexpr std::size_t few = 32;
  if (counter.all() <= few) {
    return {counter.all(), counter.all()};
  }
  Density density;
  const std::int64_t nextMs = latestCycleMs + cycleMs;
  std::int64_t counted = always;
  const Positions range = rangeOf(points, counter, latestCycleMs, cycleMs);
  for (std::uint64_t position = range.begin; position < range.end; ++position) {
    const Point point = points.at(position);
    // The cycle that reaches it.
    const std::int64_t late = std::max<std::int64_t>(point.timeMs - latestCycleMs, 1);
    const std::int64_t dueMs = latestCycleMs + (late + cycleMs - 1) / cycleMs * cycleMs;
    if (dueMs == counted) {
      continue;
    }
    counted = dueMs;
    for (const std::int64_t lastMs : {dueMs, dueMs + cycleMs}) {
      // The first of two cycles, the next one, takes what is overdue as well.
      const std::int64_t beginMs = lastMs - cycleMs <= nextMs ? always : lastMs - 2 * cycleMs + 1;
      density.inTwoCycles = std::max(density.inTwoCycles, counter.countDue(beginMs, lastMs));
    }
    const std::int64_t reachMs = windowMs + 2 * cycleMs;
    // A window with it may hold what is overdue as well.
    const std::int64_t beginMs = point.timeMs - reachMs <= nextMs ? always : point.timeMs - reachMs;
    density.inWindow = std::max(
        density.inWindow, counter.countDue(beginMs, std::max(point.timeMs, nextMs) + reachMs));
  }
  return density;
}

}  // namespace host
