#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "host/motion/point.h"
#include "timedcommand/timedcommand.h"

namespace host {

/// The points of one axis that are still to come, of any number: the authority on what
/// the axis will do.
///
/// Invariant: times never fall, and among equal times the later arrival comes first. So
/// the points lie as a timeline of the library that has room for all would hold them.
class Backlog {
 public:
  /// Positions of what a mode keeps: it removes at the ends alone.
  struct Range {
    std::size_t begin = 0;
    std::size_t end = 0;
  };

  [[nodiscard]] bool empty() const { return points_.empty(); }
  [[nodiscard]] std::size_t size() const { return points_.size(); }
  [[nodiscard]] const Point& front() const { return points_.front(); }
  [[nodiscard]] const Point& operator[](std::size_t position) const { return points_[position]; }

  void popFront() { points_.pop_front(); }
  void erase(std::size_t position);

  /// What stays when `points` come with this mode. They are in time order.
  [[nodiscard]] Range kept(const std::vector<Point>& points, TimedCommand::commandType mode) const;

  /// How many points of the range are due from `beginMs` up to and including `endMs`.
  [[nodiscard]] std::size_t countDue(Range range, std::int64_t beginMs, std::int64_t endMs) const;

  /// Takes points in by the rules of a timeline: removes what the mode does not keep, then
  /// merges, a new point before a waiting one with the same time. Points with equal times
  /// come in the order in which they are to wait. Returns what was removed.
  std::vector<Point> take(const std::vector<Point>& points, TimedCommand::commandType mode);

 private:
  std::deque<Point> points_;
};

/// How many of these a cycle at this time reaches: all that are overdue, and of those due
/// exactly then the first. `timeAt(i)` is the time of the i-th of `count`, in order.
template <typename TimeAt>
std::size_t reachedCount(std::size_t count, std::int64_t cycleMs, const TimeAt& timeAt) {
  std::size_t reached = 0;
  while (reached < count && timeAt(reached) < cycleMs) {
    ++reached;
  }
  return reached + (reached < count && timeAt(reached) == cycleMs ? 1 : 0);
}

}  // namespace host
