#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "host/results/report.h"
#include "host/engine/torvex.h"
#include "registry/attrfullnamemanager.h"
#include "tests/host/prepared.h"
#include "tests/support/bits.h"

namespace {

/// The library on a machine, without a host.
struct Library {
  simulation::Machine machine;
  AttrFullName names;
  TimedCommandManager commands;

  explicit Library(const Prepared& prepared)
      : machine(prepared.temporary.pool(), prepared.machine.description) {
    names.initNameList(0);
    setAttrFullNameManager(&names);
    commands.initTimedCommand(0);
  }
  ~Library() { setAttrFullNameManager(nullptr); }
};

std::size_t longestTimeline() {
  std::size_t longest = 0;
  for (const TimedCommand* timeline : getTimedCommandManager()->actuatorCommands) {
    longest = std::max(longest, timeline->commandList.size());
  }
  return longest;
}

TEST(Run, FeedsALongMotionThroughAShortWindow) {
  const Prepared setup(30, 20000, 7);
  const host::Plan plan = setup.plan();
  Torvex torvex(setup.machine, plan, setup.options);
  std::size_t longest = longestTimeline();
  torvex.run([&](std::int64_t) { longest = std::max(longest, longestTimeline()); });
  EXPECT_EQ(longest, host::windowItems);
  EXPECT_EQ(host::shortfalls(torvex), std::vector<std::string>());
  for (std::size_t i = 0; i < 30; ++i) {
    EXPECT_EQ(torvex.feeder().count(i).delivered, 20001U);
    EXPECT_EQ(torvex.feeder().count(i).refused + torvex.feeder().count(i).late, 0U);
  }
}

TEST(Feeder, FeedsAgainWhatATimelineRefused) {
  const Prepared prepared(1, 300, 10);
  const host::Plan plan = prepared.plan();
  Library library(prepared);
  host::Feeder feeder(plan, {"j0/Value"}, 0);
  CommandList others;
  for (std::uint32_t i = 0; i < 500; ++i) {
    others.emplace_back(hal::AttrGeneric(1.0F), 100'000 + i);
  }
  library.commands.AddTimedCommand("j0/Value", others, TimedCommand::MERGE);
  for (std::uint32_t timeMs = 0; timeMs <= 3010; timeMs += 10) {
    feeder.feed(library.commands, std::int64_t{timeMs} - 10);
    if (timeMs == 200) {
      CommandList nothing;
      library.commands.AddTimedCommand("j0/Value", nothing, TimedCommand::REPLACE);
    }
    library.commands.run(timeMs, timeMs - 10);
  }
  const host::FeedCount& count = feeder.count(0);
  EXPECT_EQ(count.refused, 21U) << "until the others' commands were cleared";
  EXPECT_EQ(count.sent, 301U + 21U * host::windowItems);
  EXPECT_EQ(count.delivered, 301U);
  EXPECT_EQ(count.late, 21U);
  EXPECT_TRUE(feeder.allDelivered());
  EXPECT_EQ(library.machine.actuatorValue(0).loadFloat(),
            prepared.motions[0].value(299, 0).asFloat);
}

/// Lists of all modes with up to 99 points, handed over while others run.
std::vector<host::Motion> randomLists(std::minstd_rand& engine) {
  const auto random = [&] { return static_cast<std::uint32_t>(engine()); };
  std::vector<host::Motion> motions;
  for (std::uint32_t at = 0; at < 2000; at += random() % 300) {
    host::Motion list;
    list.atMs = at;
    list.fromMs = at - std::min(at, random() % 200);
    list.mode = static_cast<TimedCommand::commandType>(1 + random() % 4);
    list.actuators = {0};
    const std::uint32_t points = 1 + random() % 99;
    for (std::uint32_t time = 0; list.times.size() < points; time += 1 + random() % 60) {
      list.times.push_back(time);
      list.places.emplace_back();
      list.values.emplace_back(static_cast<float>(random() % 1000) / 250.0F - 2.0F);
    }
    motions.push_back(std::move(list));
  }
  return motions;
}

/// What the actuator is told in each cycle when `hand` hands over what is due by
/// the cycle at this time.
template <typename Hand>
std::vector<std::uint32_t> courseWith(const Prepared& prepared, const Hand& hand) {
  Library library(prepared);
  std::vector<std::uint32_t> course;
  for (std::int64_t timeMs = 0; timeMs < 9000; timeMs += 10) {
    hand(library.commands, timeMs);
    const auto stamp = static_cast<std::uint32_t>(timeMs);
    library.commands.run(stamp, stamp - 10);
    course.push_back(bitsOf(library.machine.actuatorValue(0).loadFloat()));
  }
  return course;
}

// The window must not be seen from outside: handed over whole, each list at its
// moment, the commands would lead the same way.
TEST(Feeder, MovesAsIfEveryListWereHandedOverWhole) {
  std::minstd_rand random(3);
  int compared = 0;
  for (int round = 0; round < 200; ++round) {
    Prepared prepared(1, 0, 0);
    prepared.machine.description.actuators[0].interpolates = round % 2 == 0;
    prepared.motions = randomLists(random);
    const host::Plan plan = prepared.plan();
    bool refused = false;
    std::size_t next = 0;
    const auto& lists = plan.actuators[0].lists;
    const auto whole = courseWith(prepared, [&](TimedCommandManager& commands, std::int64_t time) {
      for (; next < lists.size() && lists[next].handOverMs <= time; ++next) {
        CommandList items;
        for (const host::PlannedItem& item : lists[next].items) {
          items.emplace_back(item.value, static_cast<std::uint32_t>(item.timeMs));
        }
        commands.AddTimedCommand("j0/Value", items, lists[next].mode);
        refused = refused || !items.empty();
      }
    });
    host::Feeder feeder(plan, {"j0/Value"}, 0);
    const auto fed = courseWith(prepared, [&](TimedCommandManager& commands, std::int64_t timeMs) {
      feeder.feed(commands, timeMs - 10);
    });
    if (!refused) {
      ++compared;
      EXPECT_EQ(fed, whole) << "round " << round;
    }
    EXPECT_TRUE(feeder.allDelivered());
    EXPECT_EQ(feeder.count(0).late + feeder.count(0).refused, 0U);
  }
  EXPECT_GT(compared, 100);
}

// However long the lists before it are, and however far ahead they reach.
TEST(Run, StopsAtTheMomentOfAnEmptyReplace) {
  Prepared prepared(1, 5000, 10);
  host::Motion& moving = prepared.motions[0];
  host::Motion later = moving;
  later.times = {100'000};
  later.values.resize(1);
  host::Motion stop = later;
  stop.times.clear();
  stop.values.clear();
  moving.atMs = later.atMs = 0;
  stop.atMs = 1000;
  stop.mode = TimedCommand::REPLACE;
  prepared.motions = {later, moving, stop};
  const host::Plan plan = prepared.plan();
  Torvex torvex(prepared.machine, plan, prepared.options);
  torvex.run([](std::int64_t) {});
  EXPECT_LT(torvex.counts().cycles, 140U) << "the stop, and the sensor settles";
  EXPECT_EQ(torvex.feeder().count(0).refused, 0U);
  EXPECT_EQ(torvex.feeder().count(0).cleared, 4900U + 1U);
  EXPECT_EQ(host::shortfalls(torvex), std::vector<std::string>());
}

TEST(Run, ReachesNothingLateThatAListOfTheSameMomentClears) {
  Prepared prepared(1, 2, 100);
  host::Motion& late = prepared.motions[0];
  late.atMs = 1000;
  late.fromMs = 0;
  host::Motion stop = late;
  stop.mode = TimedCommand::REPLACE;
  stop.times.clear();
  stop.values.clear();
  prepared.motions.push_back(stop);
  const host::Plan plan = prepared.plan();
  Torvex torvex(prepared.machine, plan, prepared.options);
  torvex.run([](std::int64_t) {});
  EXPECT_EQ(torvex.feeder().count(0).cleared, 2U);
  EXPECT_EQ(host::shortfalls(torvex), std::vector<std::string>());
}

TEST(Run, CountsCyclesInWhichOthersMoveAnActuator) {
  const Prepared setup(2, 50, 20);
  const host::Plan plan = setup.plan();
  Torvex torvex(setup.machine, plan, setup.options);
  torvex.run([&](std::int64_t timeMs) {
    torvex.machine().moveFromOutside(1, 1.5F + 1e-4F * static_cast<float>(timeMs));
  });
  EXPECT_EQ(torvex.actuators()[0].cyclesMovedByOthers, 0U);
  EXPECT_EQ(torvex.actuators()[1].cyclesMovedByOthers,
            torvex.machine().counters(1).movedFromOutside);
  const std::vector<std::string> warned = host::warnings(torvex);
  ASSERT_EQ(warned.size(), 1U);
  EXPECT_EQ(warned[0].rfind("j1: its value was not what the last cycle wrote", 0), 0U);
}

TEST(Run, WaitsForWhatOthersQueuedBeyondTheMotion) {
  const Prepared prepared(1, 2, 100);
  const host::Plan plan = prepared.plan();
  Torvex torvex(prepared.machine, plan, prepared.options);
  CommandList others;
  others.emplace_back(hal::AttrGeneric(1.0F), 5000);
  getTimedCommandManager()->AddTimedCommand("j0/Value", others, TimedCommand::MERGE);
  torvex.run([](std::int64_t) {});
  EXPECT_GE(torvex.counts().cycles, 501U);
  EXPECT_EQ(torvex.actuators()[0].commanded(), 1.0);
  EXPECT_EQ(host::shortfalls(torvex).size(), 1U) << "another command than the motion's last";
}

TEST(Run, SaysWhichJointDidNotArrive) {
  Prepared setup(2, 50, 20);
  setup.machine.description.actuators[1].maximumVelocity = 0.01F;
  setup.options.timing.leadMs = 10;
  const host::Plan plan = setup.plan();
  Torvex torvex(setup.machine, plan, setup.options);
  torvex.run([](std::int64_t) {});
  const std::vector<std::string> reasons = host::shortfalls(torvex);
  ASSERT_EQ(reasons.size(), 1U);
  EXPECT_EQ(reasons[0].rfind("j1: measured ", 0), 0U) << reasons[0];
  EXPECT_EQ(torvex.counts().cycles, (10 + 49 * 20 + 2000) / 10 + 1U) << "two seconds to settle";
}

}  // namespace
