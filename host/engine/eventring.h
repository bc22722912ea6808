#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "host/engine/prioritymutex.h"
#include "host/motion/event.h"

namespace host {

/// The latest events, for listeners that read them later, on any thread; never the cycle.
/// Reached points are told per batch and cycle, those of several axes in one event.
class EventRing : public Listener {
 public:
  using Counts = std::array<std::uint64_t, eventKinds>;

  /// How far a reader has come.
  struct Cursor {
    std::uint64_t next = 0;
    Counts seen{};
  };

  /// For so many the lock may be held.
  static constexpr std::size_t portion = 64;

  explicit EventRing(std::size_t length = 10'000);

  void tell(const Event& event, const Point* points) override;
  /// Makes visible to readers what was told; until then reached points are gathered.
  void publish();

  /// A reader that begins with the event of this number, or the oldest one behind it that is
  /// still there; without a number, with the next one to come.
  [[nodiscard]] Cursor cursorAt(std::optional<std::uint64_t> number) const;
  /// Returns events since the cursor, at most `portion` at a time and none when there are no
  /// more, and moves it on, not beyond `end`. Events that were overwritten before they were read
  /// are counted, by kind, in `missed`.
  std::vector<Event> read(Cursor& cursor, Counts& missed,
                          std::uint64_t end = std::numeric_limits<std::uint64_t>::max()) const;

 private:
  [[nodiscard]] bool joinsGathered(const Event& event);
  void append(const Event& event);

  /// Of the thread that tells.
  std::vector<Event> gathered_;

  mutable PriorityMutex mutex_;
  std::vector<Event> events_;
  const std::size_t length_;
  std::uint64_t count_ = 0;
  Counts told_{};
  /// Of those that were overwritten.
  Counts overwritten_{};
};

}  // namespace host
