#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "host/engine/kindhistory.h"
#include "host/engine/prioritymutex.h"
#include "host/motion/event.h"

namespace host {

/// The latest events, for listeners that read them later, on any thread; never the cycle.
/// Reached points are told per batch and cycle, those of several axes in one event.
class EventRing : public Listener {
 public:
  using Counts = KindHistory::Counts;

  /// How far a reader has come.
  struct Cursor {
    std::uint64_t next = 0;
    Counts seen{};
  };

  /// For so many the lock may be held.
  static constexpr std::size_t portion = 64;

  /// `historyBlocks` as `KindHistory` takes them; what it knows must be longer than the ring.
  explicit EventRing(std::size_t length = 10'000, std::size_t historyBlocks = 1024);

  void tell(const Event& event, const Point* points) override;
  /// Makes visible to readers what was told; until then reached points are gathered.
  void publish();

  /// A reader that begins with the event of this number; without one, with the next one to come.
  [[nodiscard]] Cursor cursorAt(std::optional<std::uint64_t> number) const;
  /// Returns events since the cursor, at most `portion` at a time and none when there are no
  /// more, and moves it on. Events that were overwritten before they were read are counted, by
  /// kind, in `missed`, save those that were too long ago when the reader began.
  std::vector<Event> read(Cursor& cursor, Counts& missed) const;

 private:
  [[nodiscard]] bool joinsGathered(const Event& event);
  void append(const Event& event);

  /// Of the thread that tells.
  std::vector<Event> gathered_;

  mutable PriorityMutex mutex_;
  std::vector<Event> events_;
  const std::size_t length_;
  KindHistory history_;
};

}  // namespace host
