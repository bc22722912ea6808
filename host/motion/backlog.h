#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <map>
#include <memory>
#include <vector>

#include "host/motion/curve.h"
#include "host/motion/point.h"
#include "host/motion/rounds.h"
#include "timedcommand/timedcommand.h"

namespace host {

/// The points of one axis that are still to come, of any number: the authority on what
/// the axis will do.
///
/// Invariant: times never fall, and among equal times the later arrival comes first. So
/// the points lie as a timeline of the library that has room for all would hold them.
///
/// Batches that repeat wait as rules beside the points, and what they have is laid among these
/// one by one. Invariant: while any wait, the first `aheadPoints` points and those with the
/// time of the last of them are where they would be if all had been laid in.
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

  /// More than a window can hold.
  static constexpr std::size_t aheadPoints = TimedCommand::MAX_TIMELINE_ITEMS + 1;
  /// Each point that comes or is counted costs a look at each.
  static constexpr std::size_t mostRepeated = 1000;

  [[nodiscard]] bool empty() const { return size_ == 0; }
  /// Without those that wait in rounds.
  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] std::uint64_t countInRounds() const;
  /// Whether one more batch that repeats finds room.
  [[nodiscard]] bool hasRoomForRounds() const { return rounds_.size() < mostRepeated; }
  [[nodiscard]] const Point& front() const { return blocks_.front().front(); }
  /// Whether all that waits is the end of a stop.
  [[nodiscard]] bool isStopping() const { return size_ == 1 && front().isOfHost; }
  /// Takes longer the further it lies behind the front.
  [[nodiscard]] const Point& operator[](std::size_t position) const;
  /// Of all, those in rounds included.
  [[nodiscard]] Point last() const;

  void popFront();
  void erase(std::size_t position);

  /// What stays when `points` come with this mode. They are in time order.
  [[nodiscard]] static Kept kept(const Rounds& points, TimedCommand::commandType mode);

  /// How many points are due from `beginMs` up to and including `endMs`, of those kept.
  [[nodiscard]] std::size_t countDue(const Kept& kept, std::int64_t beginMs,
                                     std::int64_t endMs) const;

  /// The most points that are due within two cycles: an upper bound, by what was noted.
  [[nodiscard]] std::size_t densest() const { return densest_; }
  /// That many are due within two cycles around the points that are taken next.
  void noteDensity(std::size_t dueTogether) {
    densest_ = empty() ? dueTogether : std::max(densest_, dueTogether);
  }

  using Block = std::vector<Point>;
  /// Points that waited in the rounds of a batch: the first one's number, and how many.
  struct Run {
    std::uint32_t batch = 0;
    std::uint32_t first = 0;
    std::uint64_t count = 0;
  };
  struct Removed {
    /// In order.
    std::vector<Block> blocks;
    std::vector<Run> runs;
  };

  /// Takes points in by the rules of a timeline: removes what the mode does not keep, then
  /// merges, a new point before a waiting one with the same time. Points with equal times
  /// come in the order in which they are to wait. Returns what was removed. The curve is that
  /// of their batch; without one their segments are lines. A point of the host gives way to all
  /// others, and stays when none come.
  Removed take(const Rounds& points, TimedCommand::commandType mode,
               std::shared_ptr<const Curve> curve = nullptr);

  /// Also a point of the host.
  Removed removeAll();

  /// Grows whenever it changes, save by points that come to the front and are popped.
  [[nodiscard]] std::uint64_t changes() const { return changes_; }

  /// What the batch of a waiting point says of it.
  [[nodiscard]] Knot knotOf(const Point& point) const;
  /// Whether the way to the first point begins in motion. The first point of a smooth batch
  /// is passed then, and else reached at rest.
  void beginInMotion(bool inMotion);
  /// Lets go of the curves of which no point waits. It may free much memory.
  void dropPastCurves();

  /// False when it does not hold this point.
  bool remove(const Point& point);

  /// The one batch whose rounds wait; null when there is none, or more than one.
  [[nodiscard]] const Rounds* onlyRounds() const {
    return rounds_.size() == 1 ? &rounds_.front().points : nullptr;
  }
  /// Passes over whole rounds of this batch as if they had been reached, as many as end before
  /// points of others are due, and with the new first point due by `untilMs`. The first point is
  /// one of this batch, and lies behind its first round. Returns how many: a multiple of `unit`.
  std::uint64_t skipRounds(std::int64_t untilMs, std::uint64_t unit);

 private:
  struct WaitingCurve {
    std::shared_ptr<const Curve> curve;
    std::uint64_t points = 0;
    bool beginsInMotion = false;
  };

  static constexpr std::size_t blockPoints = 128;
  /// Of a point, or of the end: of no block, and 0.
  struct Cursor {
    std::size_t block = 0;
    std::size_t offset = 0;
  };
  /// What is not laid in yet of a batch that repeats.
  struct Waiting {
    Rounds points;
    std::uint64_t next = 0;
    std::uint64_t end = 0;
    std::uint32_t arrival = 0;
    std::int64_t nextMs = 0;
  };

  /// The first point at or behind a time.
  [[nodiscard]] Cursor findFirst(std::int64_t timeMs) const;
  [[nodiscard]] Cursor cursorAt(std::size_t position) const;
  [[nodiscard]] Cursor behind(const Cursor& cursor) const;
  [[nodiscard]] std::size_t countBetween(const Cursor& begin, const Cursor& end) const;
  void cut(const Cursor& begin, const Cursor& end, std::vector<Block>& removed);
  void cutRounds(const Kept& kept, std::vector<Run>& removed);
  void takeOnce(const std::vector<Point>& points);
  void append(const std::vector<Point>& points);
  void insert(const Point& point, Cursor cursor);
  void eraseAt(const Cursor& place);
  void layIn();
  void layInNext(Waiting& waiting);
  void dropEnded();
  void noteGone(std::uint32_t batch, std::uint64_t points);

  std::deque<Block> blocks_;
  std::size_t size_ = 0;
  std::vector<Waiting> rounds_;
  std::uint32_t arrivals_ = 0;
  std::size_t densest_ = 0;
  std::uint64_t changes_ = 0;
  /// By batch; only those with curves.
  std::map<std::uint32_t, WaitingCurve> curves_;
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
