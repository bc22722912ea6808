// The arithmetic of points.

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <utility>

#include "host/engine/preparedmerge.h"
#include "host/motion/density.h"
#include "host/motion/intake.h"
#include "host/motion/limits.h"
#include "tests/host/batches.h"
#include "tests/support/bits.h"

namespace {

using host::Point;

/// For one actuator.
host::CommandBatch batchAt(const std::vector<std::uint32_t>& times, std::uint32_t repeat = 1) {
  host::CommandBatch batch;
  batch.actuators = {0};
  batch.times = times;
  batch.repeat = repeat;
  batch.values.resize(times.size());
  return batch;
}

/// The points of a batch for an actuator without limits.
host::Rounds pointsOf(const host::CommandBatch& batch, std::uint32_t number) {
  const simulation::Actuator actuator;
  const host::ScheduledBatch whole{std::make_shared<host::CommandBatch>(batch), std::nullopt, 0};
  return host::Intake{whole, number, 0, actuator, 0, 1}.points();
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

/// Where no more points may come from rounds.
std::uint32_t settled(const host::Backlog& backlog) {
  const std::size_t size =
      backlog.countInRounds() > 0 ? host::Backlog::aheadPoints : backlog.size();
  return static_cast<std::uint32_t>(size);
}

void expectSame(const host::Backlog& backlog, const NaiveTimeline& naive) {
  ASSERT_EQ(backlog.size() + backlog.countInRounds(), naive.points.size());
  ASSERT_TRUE(backlog.empty() || backlog.last().isSamePointAs(naive.points.back()));
  for (std::size_t i = 0; i < settled(backlog); ++i) {
    ASSERT_TRUE(backlog[i].isSamePointAs(naive.points[i])) << i;
    ASSERT_EQ(backlog[i].timeMs, naive.points[i].timeMs) << i;
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
      const bool lasts = !times.empty() && times.back() > 0;
      const std::uint32_t rounds = lasts && random.chance(30) ? 1 + random.below(200) : 1;
      const host::CommandBatch commands = batchAt(times, rounds);
      const host::Rounds points = pointsOf(commands, batch);
      const auto mode = static_cast<TimedCommand::commandType>(1 + random.below(4));
      host::PreparedMerge prepared(backlog, std::min(backlog.size(), std::size_t{30}), points, mode,
                                   nullptr);
      const bool onlyReached = random.chance(50);
      for (std::uint32_t some = random.below(30); some > 0 && !backlog.empty(); --some) {
        const bool isFirst = onlyReached || random.chance(80);
        const std::size_t position = isFirst ? 0 : random.below(settled(backlog));
        isFirst ? backlog.popFront() : backlog.erase(position);
        naive.points.erase(naive.points.begin() + static_cast<std::ptrdiff_t>(position));
      }
      if (!onlyReached && random.chance(10)) {
        (void)backlog.removeAll();
        naive.points.clear();
      }
      expectSame(backlog, naive);
      const std::size_t before = naive.points.size();
      const std::size_t kept = backlog.countDue(host::Backlog::kept(points, mode), 0, 1'000'000);
      host::PointCounts counts;
      Tally told;
      host::tellCleared({host::EventKind::cleared},
                        random.chance(50) ? backlog.take(points, mode) : prepared.applyTo(backlog),
                        counts, told);
      const auto cleared = naive.push(pointsOf(writtenOut(commands), batch).first(), mode);
      EXPECT_EQ(told.of(host::EventKind::cleared).points, cleared.size());
      expectSame(backlog, naive);
      EXPECT_EQ(kept, before - counts.cleared);
      const std::int64_t from = random.below(50), to = from + random.below(20);
      const auto due = std::count_if(
          naive.points.begin(), naive.points.end(),
          [&](const Point& point) { return point.timeMs >= from && point.timeMs <= to; });
      EXPECT_EQ(backlog.countDue({}, from, to), static_cast<std::size_t>(due));
    }
  }
}

TEST(Backlog, PassesTheFirstPointOfASmoothBatchInMotionAlone) {
  host::Backlog backlog;
  const std::vector<host::Knot> knots(
      2, {host::Shape::smooth, host::Knot::Known::velocity, 2.0F, 0.0F});
  (void)backlog.take(pointsOf(batchAt({5, 9}), 0), TimedCommand::MERGE,
                     std::make_shared<host::Curve>(knots, 0, false));
  for (const bool inMotion : {false, true}) {
    backlog.beginInMotion(inMotion);
    EXPECT_EQ(backlog.knotOf(backlog.front()).velocity, inMotion ? 2.0F : 0.0F);
    EXPECT_EQ(backlog.knotOf(backlog[1]).velocity, 2.0F);
  }
}

TEST(Intake, PutsTheLaterOfTwoEqualTimesFirst) {
  const host::Rounds points = pointsOf(batchAt({3, 5, 5, 5, 8}), 0);
  std::vector<std::uint32_t> indices;
  for (const Point& point : points.first()) {
    indices.push_back(point.index);
  }
  EXPECT_EQ(indices, (std::vector<std::uint32_t>{0, 3, 2, 1, 4}));
}

/// So many points, from a time on, so far apart.
struct Row {
  std::uint32_t count, firstMs, stepMs, repeat = 1;

  [[nodiscard]] host::Rounds points(std::uint32_t batch) const {
    std::vector<std::uint32_t> times;
    for (std::uint32_t i = 0; i < count; ++i) {
      times.push_back(firstMs + i * stepMs);
    }
    return pointsOf(batchAt(times, repeat), batch);
  }
};

TEST(Density, CountsWhatIsDueTogether) {
  constexpr auto merge = TimedCommand::MERGE;
  const struct {
    Row queued, coming;
    TimedCommand::commandType mode;
    std::int64_t latestMs, cycleMs;
    std::size_t inTwoCycles, inWindow;
  } cases[] = {{{300, 1001, 0}, {211, 1020, 0}, merge, 0, 10, 511, 511},
               {{300, 1001, 0}, {212, 1020, 0}, merge, 0, 10, 512, 512},
               {{300, 1001, 0}, {211, 1021, 0}, merge, 0, 10, 211, 511},
               {{300, 1020, 0}, {211, 1001, 0}, merge, 0, 10, 511, 511},
               {{300, 1021, 0}, {211, 1001, 0}, merge, 0, 10, 211, 511},
               // What is late is due in the next cycle, all together.
               {{100, 20, 10}, {10, 0, 0}, merge, 500, 10, 61, 70},
               {{100, 20, 10}, {10, 520, 0}, merge, 500, 10, 61, 70},
               {{100, 20, 10}, {40, 530, 0}, merge, 500, 10, 42, 100},
               // The grid of the cycles begins where they are.
               {{60, 11, 0}, {40, 24, 0}, merge, 3, 7, 100, 100},
               {{60, 11, 0}, {40, 25, 0}, merge, 3, 7, 40, 100},
               {{100, 1000, 1}, {40, 1010, 0}, merge, 0, 10, 60, 140},
               {{100, 1000, 1}, {40, 1010, 0}, TimedCommand::REPLACE, 0, 10, 40, 40},
               {{100, 1000, 1}, {40, 1010, 0}, TimedCommand::CLEAR_AFTER, 0, 10, 50, 50},
               {{100, 1000, 1}, {40, 1010, 0}, TimedCommand::CLEAR_BEFORE, 0, 10, 50, 129},
               // Rounds lie otherwise on the grid each time.
               {{0, 0, 0}, {100, 7, 0, 1'000'000}, merge, 0, 10, 300, 300},
               {{0, 0, 0}, {50, 20, 0, 1'000'000}, merge, 50'000, 10, 125'050, 125'050},
               // What else is there may be everywhere.
               {{300, 1001, 0}, {20, 1, 1, 1'000'000}, merge, 0, 10, 320, 320}};
  for (const auto& tried : cases) {
    host::Backlog backlog;
    backlog.noteDensity(tried.queued.count);
    (void)backlog.take(tried.queued.points(0), merge);
    const auto [inTwoCycles, inWindow] = host::densityAround(
        tried.coming.points(1), backlog, tried.mode, tried.latestMs, tried.cycleMs);
    const auto number = &tried - cases;
    EXPECT_EQ(inTwoCycles, tried.inTwoCycles) << number;
    EXPECT_GE(inWindow, tried.inWindow) << number;
    EXPECT_LE(inWindow, tried.queued.count + tried.coming.count * tried.coming.repeat) << number;
  }
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
               {16777217.0, none, 16777216, 16777217},
               {-2.5, 2.5, 9, 2},
               {-2.5, 2.5, -9, -2},
               {2.5, 7, 0, 3},
               {0.2, 0.8, 5, 1}};
  simulation::Actuator actuator;
  actuator.typeCode = 1;
  for (const auto& tried : cases) {
    actuator.minimum = tried.minimum;
    actuator.maximum = tried.maximum;
    hal::AttrGeneric asked;
    asked.asInt = tried.asked;
    EXPECT_EQ(host::limited(actuator, asked).asInt, tried.done)
        << tried.minimum << " to " << tried.maximum;
  }
}

TEST(Limits, KeepFloatsToTheBit) {
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  constexpr float infinite = std::numeric_limits<float>::infinity();
  simulation::Actuator actuator;
  actuator.minimum = -0.1;
  actuator.maximum = 0.1;
  for (const auto& [asked, done] :
       {std::pair{0.1F, 0.1F}, {-0.0F, -0.0F}, {1.0F, 0.1F}, {-1e38F, -0.1F}, {infinite, 0.1F}}) {
    EXPECT_EQ(bitsOf(host::limited(actuator, hal::AttrGeneric(asked)).asFloat), bitsOf(done));
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

}  // namespace
