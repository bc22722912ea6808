#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/commandqueue.h"
#include "host/plan.h"
#include "host/window.h"

class TimedCommandManager;

namespace host {

/// What became of the items of one actuator.
struct FeedCount {
  /// Items handed over, again after a refusal included.
  std::uint64_t sent = 0;
  /// Items that the timeline took.
  std::uint64_t delivered = 0;
  /// Items that it took after they were due.
  std::uint64_t late = 0;
  /// Pushes that it refused, to be fed again.
  std::uint64_t refused = 0;
  /// Items that a later list cleared before they were due.
  std::uint64_t cleared = 0;
};

/// Hands a plan over to the timelines: each list at its moment and with its mode,
/// its items as a sliding window. What is not handed over yet counts as queued: a
/// later list clears it by the same rule as the timeline. Used by one thread at a
/// time, beside the cycle.
class Feeder {
 public:
  /// The plan must outlive the feeder. `keys` says where the items of each of its
  /// actuators go, as `TimedCommandManager::AddTimedCommand` takes it.
  Feeder(const Plan& plan, const std::vector<std::string>& keys, std::uint32_t startTick);

  /// Feeds what the next cycle and the window have room for, after the cycle at
  /// `timeMs` has run. What a timeline refuses is fed again by a later call.
  void feed(TimedCommandManager& commands, std::int64_t timeMs);

  [[nodiscard]] bool allDelivered() const;
  [[nodiscard]] const std::string& key(std::size_t actuator) const {
    return channels_[actuator].key;
  }
  [[nodiscard]] const FeedCount& count(std::size_t actuator) const {
    return channels_[actuator].count;
  }
  /// Items that are neither delivered nor cleared yet.
  [[nodiscard]] std::size_t waiting(std::size_t actuator) const;
  /// About the most items that all timelines together hold at once.
  [[nodiscard]] std::size_t mostQueued() const;

 private:
  /// What the next push must carry at once: items of one motion, or of any.
  struct Push {
    TimedCommand::commandType mode = TimedCommand::MERGE;
    const Motion* motion = nullptr;
    std::size_t most = windowItems;
  };
  /// The way to one timeline.
  struct Channel {
    std::string key;
    const std::vector<PlannedList>* lists;
    std::size_t nextList = 0;
    CommandQueue queue;
    /// How many items of the queue the timeline holds.
    std::size_t inTimeline = 0;
    Push push;
    FeedCount count;
  };
  using Items = std::vector<QueuedItem*>;

  [[nodiscard]] bool takeNextList(Channel& channel, std::int64_t timeMs) const;
  [[nodiscard]] Items nextItems(Channel& channel, std::int64_t timeMs) const;
  void deliver(TimedCommandManager& commands, Channel& channel, std::int64_t timeMs) const;
  [[nodiscard]] bool push(TimedCommandManager& commands, Channel& channel, const Items& items,
                          std::int64_t timeMs) const;

  const Schedule& schedule_;
  const std::uint32_t startTick_;
  std::vector<Channel> channels_;
};

}  // namespace host
