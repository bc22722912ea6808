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

void expectEnough(const WindowedAxis& axis, std::int64_t followingMs) {
  const std::int64_t nextMs = axis.path.nextMs();
  ASSERT_GE(axis.window.items().size(), host::windowItems);
  ASSERT_GT(axis.timeFromEnd(host::windowItems), nextMs) << "too few";
  ASSERT_TRUE(axis.path.interpolates || followingMs > nextMs + host::windowMs);
}

void expectFilled(const WindowedAxis& axis) {
  const std::size_t size = axis.window.items().size();
  ASSERT_LE(size, 511U);
  const std::int64_t nextMs = axis.path.nextMs(), boundMs = axis.window.boundMs(axis.path);
  ASSERT_EQ(boundMs == host::unboundedMs, axis.isWhole());
  ASSERT_GE(boundMs, nextMs) << "machine time would stand";
  if (axis.isWhole()) {
    return;
  }
  const std::int64_t followingMs = axis.backlog[axis.window.points()].timeMs;
  ASSERT_LT(boundMs, followingMs) << "a cycle needs what the timeline does not hold";
  ASSERT_LT(axis.timeFromEnd(1), followingMs) << "it ends between equal times";
  // A group of equal times may have found no room.
  if (size <= 511 - 30) {
    expectEnough(axis, followingMs);
  }
}

TEST(Window, CoversWhatComesNextAndNoMore) {
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
        const std::size_t needed = host::windowItems + host::refillItems + 30;
        const std::int64_t enoughMs =
            axis.path.nextMs() + host::windowMs + std::int64_t{host::refillItems} * cycleMs;
        const std::size_t size = axis.window.items().size();
        ASSERT_TRUE(size <= needed || axis.timeFromEnd(30) <= enoughMs) << "more than it needs";
      }
      ASSERT_NO_FATAL_FAILURE(expectFilled(axis)) << "round " << round;
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
