// The arithmetic of points, each part against a naive one.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <list>
#include <memory>
#include <optional>

#include "host/motion/density.h"
#include "host/motion/intake.h"
#include "host/motion/limits.h"
#include "host/motion/segment.h"
#include "tests/support/bits.h"
#include "tests/support/random.h"

namespace {

using host::Point;

/// The points of a batch for an actuator without limits.
std::vector<Point> pointsAt(const std::vector<std::uint32_t>& times, std::uint32_t batch) {
  const simulation::Actuator actuator;
  const auto motion = std::make_shared<host::Motion>();
  motion->actuators = {0};
  motion->times = times;
  motion->values.resize(times.size());
  const host::Batch whole{motion, std::nullopt, 0};
  return host::Intake{whole, batch, 0, actuator, 0, 1}.points();
}

std::vector<std::uint32_t> randomTimes(Random& random, std::uint32_t most, std::uint32_t span,
                                       std::uint32_t widest) {
  std::vector<std::uint32_t> times;
  auto time = random.below(span);
  for (std::uint32_t i = random.below(most + 1); i > 0; --i) {
    times.push_back(time);
    time += random.below(widest);
  }
  return times;
}

/// A timeline without bounds, as the rules of the library have it.
struct NaiveTimeline {
  std::list<Point> points;

  void push(const std::vector<std::uint32_t>& times, std::uint32_t batch,
            TimedCommand::commandType mode) {
    points.remove_if([&](const Point& point) {
      return mode == TimedCommand::REPLACE ||
             (mode == TimedCommand::CLEAR_AFTER && !times.empty() &&
              point.timeMs >= times.front()) ||
             (mode == TimedCommand::CLEAR_BEFORE && !times.empty() && point.timeMs <= times.back());
    });
    for (std::uint32_t i = 0; i < times.size(); ++i) {
      auto place = points.begin();
      while (place != points.end() && place->timeMs < times[i]) {
        ++place;
      }
      points.insert(place, {times[i], {}, batch, i});
    }
  }
  std::size_t run(std::int64_t cycleMs) {
    std::size_t taken = 0;
    for (; !points.empty() && points.front().timeMs <= cycleMs; ++taken) {
      const bool exact = points.front().timeMs == cycleMs;
      points.pop_front();
      if (exact) {
        return taken + 1;
      }
    }
    return taken;
  }
};

void expectSame(const host::Backlog& backlog, const NaiveTimeline& naive) {
  ASSERT_EQ(backlog.size(), naive.points.size());
  std::size_t position = 0;
  for (const Point& point : naive.points) {
    ASSERT_TRUE(backlog[position].isSamePointAs(point)) << position;
    ASSERT_EQ(backlog[position].timeMs, point.timeMs) << position;
    ++position;
  }
}

TEST(Backlog, FollowsTheRulesOfATimeline) {
  Random random(5);
  for (int sequence = 0; sequence < 300; ++sequence) {
    host::Backlog backlog;
    NaiveTimeline naive;
    // Also more than a block holds.
    const std::uint32_t mostPoints = sequence % 10 == 0 ? 300 : 9;
    for (std::uint32_t batch = 0; batch < 12; ++batch) {
      const auto times = randomTimes(random, mostPoints, 40, 4);
      const auto points = pointsAt(times, batch);
      const auto mode = static_cast<TimedCommand::commandType>(1 + random.below(4));
      const std::size_t before = backlog.size();
      const std::size_t kept = backlog.countDue(host::Backlog::kept(points, mode), 0, 1'000'000);
      const std::size_t removed = host::inOne(backlog.take(points, mode)).size();
      naive.push(times, batch, mode);
      expectSame(backlog, naive);
      EXPECT_EQ(kept, before - removed);
      const std::int64_t from = random.below(50), to = from + random.below(20);
      const auto due = std::count_if(
          naive.points.begin(), naive.points.end(),
          [&](const Point& point) { return point.timeMs >= from && point.timeMs <= to; });
      EXPECT_EQ(backlog.countDue({}, from, to), static_cast<std::size_t>(due));
      const std::int64_t cycleMs = random.below(30);
      std::size_t reached = host::reachedCount(
          backlog.size(), cycleMs, [&](std::size_t position) { return backlog[position].timeMs; });
      EXPECT_EQ(reached, naive.run(cycleMs));
      for (; reached > 0; --reached) {
        backlog.popFront();
      }
      expectSame(backlog, naive);
    }
  }
}

/// What is queued and what comes, with the cycles that would reach it.
struct Crowd {
  std::vector<Point> news, all;
  std::int64_t latestMs, cycleMs;

  [[nodiscard]] std::int64_t dueAt(const Point& point) const {
    std::int64_t dueMs = latestMs + cycleMs;
    while (dueMs < point.timeMs) {
      dueMs += cycleMs;
    }
    return dueMs;
  }
  /// The most due in two successive cycles one of which reaches a new point.
  [[nodiscard]] std::size_t inTwoCycles() const {
    std::size_t most = 0;
    for (const Point& point : news) {
      for (const std::int64_t firstMs : {dueAt(point) - cycleMs, dueAt(point)}) {
        most = std::max(most, static_cast<std::size_t>(
                                  std::count_if(all.begin(), all.end(), [&](const Point& other) {
                                    const std::int64_t dueMs = dueAt(other);
                                    return dueMs == firstMs || dueMs == firstMs + cycleMs;
                                  })));
      }
    }
    return most;
  }
  /// The most that a window with a new point has to hold after some cycle: what is not
  /// reached up to 100 ms behind the next one.
  [[nodiscard]] std::size_t inWindow() const {
    std::size_t most = 0;
    for (std::int64_t nowMs = latestMs; nowMs <= latestMs + 700; nowMs += cycleMs) {
      const auto isHeld = [&](const Point& point) {
        return dueAt(point) > nowMs && point.timeMs <= nowMs + cycleMs + host::windowMs;
      };
      if (std::any_of(news.begin(), news.end(), isHeld)) {
        most =
            std::max(most, static_cast<std::size_t>(std::count_if(all.begin(), all.end(), isHeld)));
      }
    }
    return most;
  }
};

TEST(Density, CountsWhatIsDueTogether) {
  Random random(6);
  for (int round = 0; round < 1000; ++round) {
    host::Backlog backlog;
    (void)backlog.take(pointsAt(randomTimes(random, 200, 100, 7), 0), TimedCommand::MERGE);
    Crowd crowd{
        pointsAt(randomTimes(random, 60, 200, 9), 1), {}, random.below(150), 1 + random.below(30)};
    const auto mode = static_cast<TimedCommand::commandType>(1 + random.below(4));
    const host::Density density =
        host::densityAround(crowd.news, backlog, mode, crowd.latestMs, crowd.cycleMs);
    (void)backlog.take(crowd.news, mode);
    for (std::size_t i = 0; i < backlog.size(); ++i) {
      crowd.all.push_back(backlog[i]);
    }
    // Few points are not looked at closely.
    if (crowd.all.size() > 32) {
      EXPECT_EQ(density.inTwoCycles, crowd.inTwoCycles()) << round;
      EXPECT_LE(density.inWindow, crowd.all.size()) << round;
    }
    EXPECT_GE(density.inTwoCycles, crowd.inTwoCycles()) << round;
    EXPECT_GE(density.inWindow, crowd.inWindow()) << round;
  }
}

hal::AttrGeneric integer(std::int32_t value) {
  hal::AttrGeneric record;
  record.asInt = value;
  return record;
}

TEST(Limits, CompareIntegersAsIntegers) {
  constexpr std::int32_t least = std::numeric_limits<std::int32_t>::min();
  constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();
  constexpr double none = std::numeric_limits<double>::infinity();
  const struct {
    double minimum, maximum;
    std::int32_t asked, done;
  } cases[] = {{-none, none, most, most},
               {-none, none, least, least},
               {-3e9, 3e9, most, most},
               {0, 2147483646.0, most, most - 1},
               {-2147483647.0, 0, least, least + 1},
               {0, 16777217.0, 16777218, 16777217},
               {16777217.0, none, 16777216, 16777217},
               {-2.5, 2.5, 9, 2},
               {-2.5, 2.5, -9, -2},
               {2.5, 7, 0, 3},
               {-7, -2.5, 0, -3},
               {0.2, 0.8, 5, 1}};
  simulation::Actuator actuator;
  actuator.typeCode = 1;
  actuator.interpolates = false;
  for (const auto& tried : cases) {
    actuator.minimum = tried.minimum;
    actuator.maximum = tried.maximum;
    EXPECT_EQ(host::limited(actuator, integer(tried.asked)).asInt, tried.done)
        << tried.minimum << " to " << tried.maximum;
    EXPECT_TRUE(host::isCommandable(actuator, integer(tried.asked)));
  }
}

TEST(Limits, KeepFloatsToTheBit) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float infinite = std::numeric_limits<float>::infinity();
  simulation::Actuator actuator;
  actuator.minimum = -0.1;
  actuator.maximum = 0.1;
  const struct {
    float asked, done;
  } cases[] = {{0.0F, 0.0F}, {-0.0F, -0.0F},  {0.1F, 0.1F},
               {1.0F, 0.1F}, {-1e38F, -0.1F}, {infinite, 0.1F}};
  for (const auto& tried : cases) {
    const hal::AttrGeneric done = host::limited(actuator, hal::AttrGeneric(tried.asked));
    EXPECT_EQ(bitsOf(done.asFloat), bitsOf(tried.done)) << tried.asked;
    EXPECT_EQ(host::isSameValue(done, hal::AttrGeneric(tried.asked)),
              bitsOf(tried.asked) == bitsOf(tried.done));
  }
  actuator.minimum = actuator.maximum = 0.0;
  EXPECT_EQ(bitsOf(host::limited(actuator, hal::AttrGeneric(-0.0F)).asFloat), bitsOf(-0.0F));
  for (const bool interpolates : {true, false}) {
    actuator.interpolates = interpolates;
    EXPECT_FALSE(host::isCommandable(actuator, host::limited(actuator, hal::AttrGeneric(nan))));
    EXPECT_FALSE(host::isCommandable(actuator, hal::AttrGeneric(-infinite)));
    EXPECT_TRUE(host::isCommandable(actuator, hal::AttrGeneric(-host::mostInterpolated)));
    EXPECT_EQ(host::isCommandable(actuator, hal::AttrGeneric(2e38F)), !interpolates);
  }
}

/// The library's own steps from the sample before to the next one, in single precision.
class Recurrence {
 public:
  Recurrence(const host::SegmentStart& start, const Point& end, std::int64_t cycleMs)
      : start_(start),
        end_(end),
        cycleMs_(cycleMs),
        value_(static_cast<float>(start.value)),
        fromValue_(value_),
        fromMs_(start.timeMs),
        next_(sampleBehind(start.timeMs)) {}

  float at(std::int64_t timeMs) {
    while (next_.timeMs <= timeMs && next_.timeMs < end_.timeMs) {
      value_ = fromValue_ = next_.value;
      fromMs_ = next_.timeMs;
      next_ = sampleBehind(next_.timeMs);
    }
    const bool isFirst = timeMs - fromMs_ <= cycleMs_;
    const std::int64_t startMs = isFirst ? fromMs_ : timeMs - cycleMs_;
    const float startValue = isFirst ? fromValue_ : value_;
    value_ = static_cast<float>(timeMs - startMs) * (next_.value - startValue) /
                 static_cast<float>(next_.timeMs - startMs) +
             startValue;
    return value_;
  }

 private:
  [[nodiscard]] host::Sample sampleBehind(std::int64_t timeMs) const {
    return host::sampleAfter(start_, end_, timeMs, cycleMs_)
        .value_or(host::Sample{end_.timeMs, end_.value.asFloat});
  }

  const host::SegmentStart start_;
  const Point end_;
  const std::int64_t cycleMs_;
  float value_, fromValue_;
  std::int64_t fromMs_;
  host::Sample next_;
};

TEST(Segment, StaysOnItsLineInSinglePrecision) {
  Random random(7);
  double worst = 0.0;
  for (int round = 0; round < 300; ++round) {
    const double magnitude = std::pow(10.0, random.between(-3, 6));
    const auto valueOf = [&] { return static_cast<float>(random.between(-magnitude, magnitude)); };
    const host::SegmentStart start{0, double{valueOf()}};
    const std::int64_t cycleMs = 1 + random.below(10);
    const Point end{1000 + random.below(599'000), hal::AttrGeneric(valueOf()), 0, 0};
    const float largest =
        std::max(std::abs(static_cast<float>(start.value)), std::abs(end.value.asFloat));
    const double allowed =
        std::max(1e-5, 2.0 * (double{std::nextafter(largest, 1e30F)} - double{largest}));
    Recurrence recurrence(start, end, cycleMs);
    for (std::int64_t timeMs = 1 + random.below(10) % cycleMs; timeMs < end.timeMs;
         timeMs += cycleMs) {
      const double line = host::valueOnLine(start, end.timeMs, double{end.value.asFloat}, timeMs);
      worst = std::max(worst, std::abs(double{recurrence.at(timeMs)} - line) / allowed);
    }
  }
  EXPECT_LE(worst, 1.0);
  EXPECT_GT(worst, 0.1) << "nothing is rounded";
}

}  // namespace
