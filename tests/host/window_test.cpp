#include "host/engine/window.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <utility>

#include "host/motion/density.h"
#include "tests/support/random.h"

namespace {

/// An axis that goes on by the rules of the library, without one.
struct WindowedAxis {
  host::Backlog backlog;
  host::SegmentStart start;
  bool interpolates = false;
  std::int64_t cycleMs = 1;
  std::int64_t latestMs = 0;
  host::Window window;

  explicit WindowedAxis(Random& random)
      : interpolates(random.below(2) == 0), cycleMs(1 + random.below(20)), latestMs(-cycleMs) {
    constexpr unsigned widest[] = {2, 9, 300, 5'000};
    const unsigned distance = widest[random.below(4)];
    std::vector<host::Point> points;
    std::int64_t timeMs = -std::int64_t{random.below(50)};
    for (std::uint32_t i = 0; i < 700; ++i) {
      points.push_back({timeMs, hal::AttrGeneric(static_cast<float>(random.below(9))), 0, i});
      timeMs += i % 100 == 99 ? 50 : random.below(distance);
    }
    (void)backlog.take(points, TimedCommand::MERGE);
    start.timeMs = latestMs;
  }

  [[nodiscard]] host::Path path() const {
    return {backlog, start, interpolates, cycleMs, latestMs};
  }
  [[nodiscard]] bool isWhole() const { return window.points() == backlog.size(); }

  void goOnTo(std::int64_t timeMs) {
    const std::int64_t previousMs = std::exchange(latestMs, timeMs);
    std::size_t taken = host::reachedCount(window.items().size(), timeMs, [this](std::size_t item) {
      return window.items()[item].timeMs;
    });
    for (; taken > 0; --taken) {
      if (window.items().front().kind == host::WindowItem::Kind::point) {
        const host::Point& point = backlog.front();
        start = {std::max(point.timeMs, previousMs), double{point.value.asFloat}};
        backlog.popFront();
      }
      window.popFront();
    }
  }

  /// The result is when the item behind the window is due.
  [[nodiscard]] std::int64_t expectBeginningOfPath() const {
    host::SegmentStart from = start;
    std::int64_t beforeMs = std::max(start.timeMs, latestMs);
    std::size_t points = 0;
    for (const host::WindowItem& item : window.items()) {
      const host::Point& end = backlog[points];
      const bool isPoint = item.kind == host::WindowItem::Kind::point;
      EXPECT_EQ(isPoint, !interpolates || !sampleBetween(from, end, beforeMs));
      EXPECT_EQ(item.timeMs, isPoint ? end.timeMs : sampleBetween(from, end, beforeMs)->timeMs);
      if (isPoint) {
        from = {std::max(end.timeMs, latestMs), double{end.value.asFloat}};
        ++points;
      }
      beforeMs = std::max(beforeMs, item.timeMs);
    }
    EXPECT_EQ(points, window.points());
    EXPECT_TRUE(isWhole() || window.items().empty() ||
                backlog[points].timeMs > window.items().back().timeMs)
        << "it ends between equal times";
    if (isWhole()) {
      return host::unboundedMs;
    }
    const auto sample =
        interpolates ? sampleBetween(from, backlog[points], beforeMs) : std::nullopt;
    return sample ? sample->timeMs : backlog[points].timeMs;
  }
  /// How many of the first so many items lie behind the next cycle.
  [[nodiscard]] std::size_t behindNext(std::size_t items) const {
    const auto first = window.items().begin();
    return static_cast<std::size_t>(std::count_if(
        first, first + static_cast<std::ptrdiff_t>(items),
        [nextMs = path().nextMs()](const auto& item) { return item.timeMs > nextMs; }));
  }

 private:
  [[nodiscard]] std::optional<host::Sample> sampleBetween(const host::SegmentStart& from,
                                                          const host::Point& end,
                                                          std::int64_t afterMs) const {
    return host::sampleAfter(from, end, afterMs, cycleMs);
  }
};

void expectFilled(const WindowedAxis& axis, std::size_t held) {
  const host::Window::Items& items = axis.window.items();
  const std::int64_t reachMs = axis.path().nextMs() + host::windowMs;
  const std::int64_t followingMs = axis.expectBeginningOfPath();
  EXPECT_LE(items.size(), 511U);
  // A group of equal times may have found no room.
  const bool isFull = items.size() > 511 - 30;
  EXPECT_TRUE(axis.isWhole() || isFull ||
              (axis.behindNext(items.size()) >= host::windowItems && followingMs > reachMs));
  std::size_t last = items.size();
  while (last > 0 && items[last - 1].timeMs == items.back().timeMs) {
    --last;
  }
  const std::int64_t refilledMs =
      reachMs + static_cast<std::int64_t>(host::refillItems) * axis.cycleMs;
  EXPECT_FALSE(last >= held && last < items.size() && items.back().timeMs > refilledMs &&
               axis.behindNext(last) >= host::windowItems + host::refillItems)
      << "more than it needs";
}

TEST(Window, CoversWhatComesNextAndNoMore) {
  Random random(1);
  for (int round = 0; round < 100; ++round) {
    WindowedAxis axis(random);
    const std::size_t few = random.below(40);
    axis.window.fill(axis.path(), few);
    (void)axis.expectBeginningOfPath();
    EXPECT_LE(axis.window.items().size(), few);
    while (!axis.backlog.empty()) {
      const std::size_t held = axis.window.items().size();
      if (axis.window.isShort(axis.path())) {
        axis.window.fill(axis.path(), 1000);
      }
      expectFilled(axis, held);
      const std::int64_t boundMs = axis.window.boundMs(axis.path());
      EXPECT_EQ(boundMs == host::unboundedMs, axis.isWhole());
      ASSERT_GE(boundMs, axis.path().nextMs()) << "machine time would stand";
      std::int64_t timeMs = axis.latestMs + (1 + random.below(40)) * axis.cycleMs;
      while (timeMs > boundMs) {
        timeMs -= axis.cycleMs;
      }
      // No cycle may need what the timeline does not hold.
      EXPECT_TRUE(axis.isWhole() || axis.expectBeginningOfPath() > timeMs);
      EXPECT_TRUE(axis.isWhole() || !axis.interpolates ||
                  axis.window.items().back().timeMs >= timeMs || axis.window.items().size() == 511);
      axis.goOnTo(timeMs);
    }
  }
}

TEST(Window, HandsNothingOverThatStampsCannotTell) {
  host::Backlog backlog;
  constexpr std::int64_t farMs = host::furthestAheadMs + 1000;
  (void)backlog.take({{farMs, hal::AttrGeneric(1.0F), 0, 0}}, TimedCommand::MERGE);
  host::Window window;
  host::Path path{backlog, {}, false, 10, 980};
  window.fill(path, 511);
  EXPECT_TRUE(window.items().empty());
  EXPECT_FALSE(window.isShort(path));
  EXPECT_EQ(window.boundMs(path), host::unboundedMs);
  path.latestMs = 990;
  EXPECT_TRUE(window.isShort(path));
  EXPECT_EQ(window.boundMs(path), farMs - 1);
  window.fill(path, 511);
  EXPECT_EQ(window.items().size(), 1U);
}

}  // namespace
