#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "host/report.h"
#include "host/torvex.h"
#include "registry/attrfullnamemanager.h"
#include "tests/support/temporary.h"

namespace {

/// A robot of some joints and a motion of some points for it, in simulated time.
struct Prepared {
  Temporary temporary;
  host::Robot robot;
  host::Motion motion;
  host::RunOptions options;

  Prepared(int joints, int points, std::uint32_t stepMs) {
    for (int i = 0; i < joints; ++i) {
      simulation::Actuator actuator;
      actuator.name = "j" + std::to_string(i);
      actuator.minimum = -2.0F;
      actuator.maximum = 2.0F;
      robot.machine.actuators.push_back(actuator);
      simulation::Sensor sensor;
      sensor.name = actuator.name + "/Sensor";
      sensor.actuator = i;
      robot.machine.sensors.push_back(sensor);
      motion.actuators.push_back(i);
    }
    for (int point = 0; point < points; ++point) {
      motion.times.push_back(stepMs * static_cast<std::uint32_t>(point));
      motion.places.emplace_back();
      for (int i = 0; i < joints; ++i) {
        motion.positions.push_back(std::sin(0.05F * static_cast<float>(point + i)));
      }
    }
    options.clock = host::Clock::simulated;
    options.poolName = temporary.pool();
  }

  [[nodiscard]] host::Schedule schedule() const {
    return host::planSchedule(robot, motion, options);
  }
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
  const host::Schedule schedule = setup.schedule();
  Torvex torvex(setup.robot, setup.motion, schedule, setup.options, nullptr);
  std::size_t longest = longestTimeline();
  torvex.run([&](std::int64_t) { longest = std::max(longest, longestTimeline()); });
  EXPECT_EQ(longest, host::windowItems);
  EXPECT_EQ(host::shortfalls(torvex), std::vector<std::string>());
  for (const host::FeedCount& count : torvex.feeder().counts()) {
    EXPECT_EQ(count.delivered, 20001U);
    EXPECT_EQ(count.refused + count.late, 0U);
  }
}

TEST(Feeder, FeedsAgainWhatATimelineRefused) {
  const Prepared prepared(1, 300, 10);
  const host::Schedule schedule = prepared.schedule();
  const simulation::Machine machine(prepared.temporary.pool(), prepared.robot.machine);
  AttrFullName names;
  names.initNameList(0);
  setAttrFullNameManager(&names);
  TimedCommandManager commands;
  commands.initTimedCommand(0);
  host::Feeder feeder(prepared.motion, schedule, {{"j0/Value", 0.0F, -2.0F, 2.0F}});
  CommandList others;
  for (std::uint32_t i = 0; i < 500; ++i) {
    others.emplace_back(hal::AttrGeneric(1.0F), schedule.stamp(100'000 + i));
  }
  commands.AddTimedCommand("j0/Value", others, TimedCommand::MERGE);
  for (std::int64_t timeMs = 0; timeMs <= feeder.lastItemMs() + 10; timeMs += 10) {
    feeder.feed(commands, timeMs - 10);
    if (timeMs == 200) {
      CommandList nothing;
      commands.AddTimedCommand("j0/Value", nothing, TimedCommand::REPLACE);
    }
    commands.run(schedule.stamp(timeMs), schedule.stamp(timeMs - 10));
  }
  setAttrFullNameManager(nullptr);
  const host::FeedCount& count = feeder.counts()[0];
  EXPECT_EQ(count.refused, 21U) << "until the others' commands were cleared";
  EXPECT_EQ(count.sent, 301U + 21U * host::windowItems);
  EXPECT_EQ(count.delivered, 301U);
  EXPECT_EQ(count.late, 21U);
  EXPECT_TRUE(feeder.allDelivered());
  EXPECT_EQ(machine.actuatorValue(0).loadFloat(), prepared.motion.position(299, 0));
}

TEST(Run, CountsCyclesInWhichOthersMoveAnActuator) {
  const Prepared setup(2, 50, 20);
  const host::Schedule schedule = setup.schedule();
  Torvex torvex(setup.robot, setup.motion, schedule, setup.options, nullptr);
  torvex.run([&](std::int64_t timeMs) {
    torvex.machine().moveFromOutside(1, 1.5F + 1e-4F * static_cast<float>(timeMs));
  });
  EXPECT_EQ(torvex.joints()[0].cyclesMovedByOthers, 0U);
  EXPECT_EQ(torvex.joints()[1].cyclesMovedByOthers, torvex.machine().counters(1).movedFromOutside);
  const std::vector<std::string> warned = host::warnings(torvex);
  ASSERT_EQ(warned.size(), 1U);
  EXPECT_EQ(warned[0].rfind("j1: its value was not what the last cycle wrote", 0), 0U);
}

TEST(Run, WaitsForWhatOthersQueuedBeyondTheMotion) {
  const Prepared prepared(1, 2, 100);
  const host::Schedule schedule = prepared.schedule();
  Torvex torvex(prepared.robot, prepared.motion, schedule, prepared.options, nullptr);
  CommandList others;
  others.emplace_back(hal::AttrGeneric(1.0F), schedule.stamp(5000));
  getTimedCommandManager()->AddTimedCommand("j0/Value", others, TimedCommand::MERGE);
  torvex.run([](std::int64_t) {});
  EXPECT_GE(torvex.counts().cycles, 501U);
  EXPECT_EQ(torvex.joints()[0].lastCommand, 1.0F);
  EXPECT_EQ(host::shortfalls(torvex).size(), 1U) << "another command than the motion's last";
}

TEST(Run, SaysWhichJointDidNotArrive) {
  Prepared setup(2, 50, 20);
  setup.robot.machine.actuators[1].maximumVelocity = 0.01F;
  setup.options.leadMs = 10;
  const host::Schedule schedule = setup.schedule();
  Torvex torvex(setup.robot, setup.motion, schedule, setup.options, nullptr);
  torvex.run([](std::int64_t) {});
  const std::vector<std::string> reasons = host::shortfalls(torvex);
  ASSERT_EQ(reasons.size(), 1U);
  EXPECT_EQ(reasons[0].rfind("j1: measured ", 0), 0U) << reasons[0];
  EXPECT_EQ(torvex.counts().cycles, (10 + 49 * 20 + 2000) / 10 + 1U) << "two seconds to settle";
}

}  // namespace
