#include "host/motion/density.h"

#include <algorithm>
#include <limits>

namespace host {
namespace {

constexpr std::int64_t always = std::numeric_limits<std::int64_t>::min();

class Counter {
 public:
  Counter(const std::vector<Point>& points, const Backlog& backlog, TimedCommand::commandType mode)
      : points_(points), backlog_(backlog), kept_(Backlog::kept(points, mode)) {}

  /// An upper bound: what the mode clears is counted as well.
  [[nodiscard]] std::size_t all() const { return points_.size() + backlog_.size(); }

  [[nodiscard]] std::size_t countDue(std::int64_t beginMs, std::int64_t endMs) const {
    const auto first = std::lower_bound(
        points_.begin(), points_.end(), beginMs,
        [](const Point& point, std::int64_t timeMs) { return point.timeMs < timeMs; });
    const auto end = std::upper_bound(
        first, points_.end(), endMs,
        [](std::int64_t timeMs, const Point& point) { return timeMs < point.timeMs; });
    return static_cast<std::size_t>(end - first) + backlog_.countDue(kept_, beginMs, endMs);
  }

 private:
  const std::vector<Point>& points_;
  const Backlog& backlog_;
  const Backlog::Kept kept_;
};

}  // namespace

Density densityAround(const std::vector<Point>& points, const Backlog& backlog,
                      TimedCommand::commandType mode, std::int64_t latestCycleMs,
                      std::int64_t cycleMs) {
  const Counter counter(points, backlog, mode);
  // So few need no look at their times.
  constexpr std::size_t few = 32;
  if (counter.all() <= few) {
    return {counter.all(), counter.all()};
  }
  Density density;
  const std::int64_t nextMs = latestCycleMs + cycleMs;
  std::int64_t counted = always;
  for (const Point& point : points) {
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
