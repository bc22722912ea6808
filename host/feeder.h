#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/input/jointtrajectory.h"
#include "host/schedule.h"

class TimedCommandManager;

namespace host {

/// What became of the items of one joint.
struct FeedCount {
  /// Items handed over, again after a refusal included.
  std::uint64_t sent = 0;
  /// Items that the timeline took.
  std::uint64_t delivered = 0;
  /// Items that it took after they were due.
  std::uint64_t late = 0;
  /// Pushes that it refused, to be fed again.
  std::uint64_t refused = 0;
};

/// Where the items of one column of a motion go.
struct FedColumn {
  /// A name as `TimedCommandManager::AddTimedCommand` takes it.
  std::string name;
  /// Where the actuator stands.
  float present = 0.0F;
  /// Its limits, which bound the approach.
  float minimum = 0.0F;
  float maximum = 0.0F;
};

/// Hands a motion over to the timelines as a sliding window: the present value
/// as an anchor at the first cycle, then the points, never more than
/// `windowItems` ahead. Used by one thread at a time, beside the cycle.
///
/// The library goes on from what it wrote, in single precision; over thousands
/// of cycles its roundings add up to some 1e-5. So longer ways between two
/// points are cut into parts on the straight line.
class Feeder {
 public:
  /// `motion` and `schedule` must outlive the feeder.
  Feeder(const Motion& motion, const Schedule& schedule, std::vector<FedColumn> columns);

  /// Feeds what the window has room for after the cycle at `timeMs` has run
  /// (-1 before the first). A list that a timeline refuses is fed again by a
  /// later call.
  void feed(TimedCommandManager& commands, std::int64_t timeMs);

  [[nodiscard]] bool allDelivered() const;
  /// Items of one joint: the anchor, the points, and the cuts between them.
  [[nodiscard]] std::size_t itemCount() const { return firstItem_.back() + 1; }
  [[nodiscard]] std::int64_t lastItemMs() const { return knotMs(motion_.times.size()); }
  [[nodiscard]] const std::vector<FeedCount>& counts() const { return counts_; }

 private:
  /// Knot 0 is the anchor, knot i + 1 is point i. A way leads from a knot to
  /// the next and begins with it; the last knot is a way of its own.
  struct Place {
    std::size_t way;
    std::int64_t sinceKnotMs;
  };

  [[nodiscard]] Place placeOf(std::size_t item) const;
  [[nodiscard]] std::int64_t knotMs(std::size_t knot) const;
  [[nodiscard]] float knotValue(std::size_t knot, std::size_t column) const;
  [[nodiscard]] std::int64_t itemMs(std::size_t item) const;
  [[nodiscard]] float itemValue(std::size_t item, std::size_t column) const;
  void feedColumn(TimedCommandManager& commands, std::size_t column, std::size_t end);

  const Motion& motion_;
  const Schedule& schedule_;
  const std::vector<FedColumn> columns_;
  /// The item with which each way begins.
  std::vector<std::size_t> firstItem_;
  /// Items that are due by the latest cycle.
  std::size_t consumed_ = 0;
  std::vector<FeedCount> counts_;
};

}  // namespace host
