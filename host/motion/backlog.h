#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <vector>

#include "host/motion/point.h"
#include "timedcommand/timedcommand.h"

namespace host {

/// The points of one axis that are still to come, of any number: the authority on what
/// the axis will do.
///
/// Invariant: times never fall, and among equal times the later arrival comes first. So
/// the points lie as a timeline of the library that has room for all would hold them.
///
/// They lie in blocks, none of them empty and none longer than `blockPoints`: a point finds
/// its place by a search over blocks and moves the rest of one block alone, wherever it
/// comes in.
class Backlog {
 public:
  /// The times from the first to the last one, both included, that a mode keeps.
  struct Kept {
    std::int64_t firstMs = std::numeric_limits<std::int64_t>::min();
    std::int64_t lastMs = std::numeric_limits<std::int64_t>::max();
  };

  [[nodiscard]] bool empty() const { return size_ == 0; }
  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] const Point& front() const { return blocks_.front().front(); }
  /// Takes longer the further it lies behind the front.
  [[nodiscard]] const Point& operator[](std::size_t position) const;

  void popFront();
  void erase(std::size_t position);

  /// What stays when `points` come with this mode. They are in time order.
  [[nodiscard]] static Kept kept(const std::vector<Point>& points, TimedCommand::commandType mode);

  /// How many points are due from `beginMs` up to and including `endMs`, of those kept.
  [[nodiscard]] std::size_t countDue(const Kept& kept, std::int64_t beginMs,
                                     std::int64_t endMs) const;

  using Block = std::vector<Point>;

  /// Takes points in by the rules of a timeline: removes what the mode does not keep, then
  /// merges, a new point before a waiting one with the same time. Points with equal times
  /// come in the order in which they are to wait. Returns what was removed, in order.
  std::vector<Block> take(const std::vector<Point>& points, TimedCommand::commandType mode);

  /// False when it does not hold this point.
  bool remove(const Point& point);

 private:
  static constexpr std::size_t blockPoints = 128;
  /// Of a point, or of the end: of no block, and 0.
  struct Cursor {
    std::size_t block = 0;
    std::size_t offset = 0;
  };

  /// The first point at or behind a time.
  [[nodiscard]] Cursor findFirst(std::int64_t timeMs) const;
  [[nodiscard]] Cursor cursorAt(std::size_t position) const;
  [[nodiscard]] std::size_t countBetween(const Cursor& begin, const Cursor& end) const;
  void cut(const Cursor& begin, const Cursor& end, std::vector<Block>& removed);
  void append(const std::vector<Point>& points);
  void insert(const Point& point);
  void eraseAt(const Cursor& place);

  std::deque<Block> blocks_;
  std::size_t size_ = 0;
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
