#include "host/engine/window.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "host/motion/density.h"
#include "tests/support/random.h"

namespace {

/// An axis that goes on by the rules of the library, without one.
struct WindowedAxis {
  host::Backlog backlog;
  host::Window window;
  host::Path path{backlog, {}, false, 1, 0};

  [[nodiscard]] bool isWhole() const { return window.points() == backlog.size(); }
  [[nodiscard]] std::int64_t timeFromEnd(std::size_t position) const {
    return window.items()[window.items().size() - position].timeMs;
  }

  void goOnTo(std::int64_t timeMs) {
    const std::int64_t previousMs = std::exchange(path.latestMs, timeMs);
    for (std::size_t taken = host::reachedCount(window.items().size(), timeMs,
                                                [this](auto item) { return timeFromFront(item); });
         taken > 0; --taken) {
      if (window.items().front().kind == host::WindowItem::Kind::point) {
        const host::Point& point = backlog.front();
        path.start = {std::max(point.timeMs, previousMs), double{point.value.asFloat}};
        backlog.popFront();
      }
      window.popFront();
    }
  }

 private:
  [[nodiscard]] std::int64_t timeFromFront(std::size_t item) const {
    return window.items()[item].timeMs;
  }
};

/// What lies behind the next cycle covers the promised items and time.
void expectEnough(const WindowedAxis& axis) {
  const std::size_t size = axis.window.items().size();
  // A group of equal times may have found no room.
  if (!axis.isWhole() && size <= 511 - 30) {
    const std::int64_t nextMs = axis.path.nextMs();
    ASSERT_GE(size, host::windowItems);
    ASSERT_GT(axis.timeFromEnd(host::windowItems), nextMs) << "too few";
    ASSERT_TRUE(axis.path.interpolates ||
                axis.backlog[axis.window.points()].timeMs > nextMs + host::windowMs);
  }
}

TEST(Window, CoversWhatComesNext) {
  Random random(1);
  for (int round = 0; round < 60; ++round) {
    WindowedAxis axis;
    const std::int64_t cycleMs = axis.path.cycleMs = 1 + random.below(20);
    axis.path.interpolates = round % 2 == 0;
    const std::uint32_t widest = std::vector<std::uint32_t>{2, 9, 300, 5'000}[random.below(4)];
    std::vector<host::Point> points;
    std::int64_t timeMs = -std::int64_t{random.below(50)};
    for (std::uint32_t i = 0; i < 1200; ++i, timeMs += i % 600 == 0 ? 50 : random.below(widest)) {
      points.push_back({timeMs, hal::AttrGeneric(static_cast<float>(random.below(9))), 0, i});
    }
    (void)axis.backlog.take(points, TimedCommand::MERGE);
    while (!axis.backlog.empty()) {
      if (axis.window.isShort(axis.path)) {
        axis.window.fill(axis.path, 1000);
      }
      ASSERT_NO_FATAL_FAILURE(expectEnough(axis)) << "round " << round;
      const std::int64_t boundMs = axis.window.boundMs(axis.path);
      const std::int64_t farthest = (boundMs - axis.path.latestMs) / cycleMs;
      axis.goOnTo(axis.path.latestMs +
                  std::min<std::int64_t>(1 + random.below(40), farthest) * cycleMs);
    }
  }
}

TEST(Window, HandsNothingOverThatStampsCannotTell) {
  host::Backlog backlog;
  constexpr std::int64_t farMs = host::furthestAheadMs + 1000;
  (void)backlog.take(std::vector{host::Point{farMs, hal::AttrGeneric(1.0F)}}, TimedCommand::MERGE);
  host::Window window;
  host::Path path{backlog, {}, false, 10, 980};
  EXPECT_FALSE(window.isShort(path));
  EXPECT_EQ(window.boundMs(path), host::unboundedMs);
  path.latestMs = 990;
  EXPECT_TRUE(window.isShort(path));
  EXPECT_EQ(window.boundMs(path), farMs - 1);
  window.fill(path, 511);
  EXPECT_EQ(window.items().size(), 1U);
}

}  // namespace
