#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>

#include "host/motion/backlog.h"
#include "host/motion/segment.h"

namespace host {

/// What the timeline holds of a point or of the segment before it.
struct WindowItem {
  enum class Kind : std::uint8_t { point, sample, anchor };

  std::int64_t timeMs = 0;
  hal::AttrGeneric value;
  Kind kind = Kind::point;

  [[nodiscard]] bool isPoint() const { return kind == Kind::point; }
};

/// How many items a window holds behind the next cycle, at least, while there are more.
constexpr std::size_t windowItems = 32;
/// How many more items, or cycles further, it is filled, so that not every cycle has to push.
constexpr std::size_t refillItems = 16;
/// Nothing further ahead is handed over: stamps more than twice as far apart do not compare.
constexpr std::int64_t furthestAheadMs = 0x20000000;

/// Machine time that nothing bounds; it leaves room to count on.
constexpr std::int64_t unboundedMs = std::numeric_limits<std::int64_t>::max() / 2;

/// The path of an axis as the timeline is to hold it.
struct Path {
  const Backlog& backlog;
  /// Where the segment to the first point of the backlog begins.
  SegmentStart start;
  bool interpolates = false;
  std::int64_t cycleMs = 1;
  /// The latest cycle: what lies before is past, and a late point is left from there.
  std::int64_t latestMs = 0;
  Range range{};
  /// Up to where a window is to reach, however much it holds.
  std::int64_t reachMs = nowhereMs;

  static constexpr std::int64_t nowhereMs = std::numeric_limits<std::int64_t>::min();

  [[nodiscard]] std::int64_t nextMs() const { return latestMs + cycleMs; }
};

/// The beginning of a backlog that the timeline of the library holds, as items.
///
/// Invariant: up to its end it holds every point of the backlog and every sample between
/// them, in the order of the backlog; it never ends between equal times.
class Window {
 public:
  using Items = std::deque<WindowItem>;

  [[nodiscard]] const Items& items() const { return items_; }
  [[nodiscard]] std::size_t points() const { return points_; }

  void clear();
  void append(const WindowItem& item);
  void popFront();
  void erase(std::size_t position);

  /// Whether it should be filled up now: it holds too little behind the next cycle, and
  /// there is more that may be handed over.
  [[nodiscard]] bool isShort(const Path& path) const;

  /// Appends what follows on the path until it is full, or holds `mostItems` in all.
  void fill(const Path& path, std::size_t mostItems);

  /// Up to which machine time a cycle may go with it; `unboundedMs` where it bounds
  /// nothing. Without items that can only be the latest cycle.
  [[nodiscard]] std::int64_t boundMs(const Path& path) const;

 private:
  [[nodiscard]] bool isWholePath(const Path& path) const { return points_ == path.backlog.size(); }
  [[nodiscard]] WindowItem next(const Path& path) const;
  [[nodiscard]] std::size_t tiedWith(const Path& path, const WindowItem& item) const;
  [[nodiscard]] std::size_t behind(std::int64_t nextMs) const;

  Items items_;
  std::size_t points_ = 0;
};

}  // namespace host
