#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <memory>

#include "host/base/stopsignal.h"
#include "host/engine/torvex.h"
#include "host/results/outcome.h"
#include "tests/host/batches.h"
#include "tests/host/prepared.h"

namespace {

/// One run of a plan, with what it told and how it is judged.
struct Ran {
  const host::Plan plan;
  Torvex torvex;
  Tally tally;
  host::Outcome outcome;

  explicit Ran(const Prepared& prepared)
      : plan(prepared.plan()), torvex(prepared.machine, plan, prepared.options.session) {
    torvex.addListener(tally);
  }
  void run(const Torvex::Progress& progress = [](std::int64_t) {}) {
    torvex.run(progress);
    outcome.axes = host::judgedAxes(torvex.result(), plan, outcome);
  }
  [[nodiscard]] const host::Axis& axis(std::size_t index) const {
    return torvex.engine().axes()[index];
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
  Ran ran(setup);
  std::size_t longest = 0;
  ran.run([&](std::int64_t) { longest = std::max(longest, longestTimeline()); });
  EXPECT_GE(longest, host::windowItems);
  EXPECT_LE(longest, host::windowItems + host::refillItems + 2);
  EXPECT_TRUE(ran.outcome.errors.empty());
  for (const host::Axis& axis : ran.torvex.engine().axes()) {
    EXPECT_EQ(axis.counts.reached, 20000U);
    EXPECT_EQ(axis.counts.points, 20000U);
  }
  EXPECT_EQ(ran.tally.of(host::EventKind::reached).points, 30U * 20000U);
  EXPECT_EQ(ran.tally.of(host::EventKind::taken).points, 30U * 20000U);
}

TEST(Run, CountsCyclesInWhichOthersMoveAnActuator) {
  const Prepared setup(2, 50, 20);
  Ran ran(setup);
  ran.run([&](std::int64_t timeMs) {
    ran.torvex.engine().machine().moveFromOutside(1, 1.5F + 1e-4F * static_cast<float>(timeMs));
  });
  EXPECT_EQ(ran.axis(0).externalWrites, 0U);
  EXPECT_EQ(ran.axis(1).externalWrites, ran.torvex.engine().machine().counters(1).movedFromOutside);
  EXPECT_EQ(ran.tally.of(host::EventKind::external).points, ran.axis(1).externalWritesTold);
  EXPECT_GT(ran.axis(1).externalWritesTold, 90U);
  EXPECT_EQ(ran.axis(1).counts.reached, 50U);
  const std::vector<host::Finding> warned = host::cycleFindings(ran.torvex.result());
  ASSERT_EQ(warned.size(), 1U);
  EXPECT_EQ(warned[0].text.rfind("j1: its value was not what the last cycle wrote", 0), 0U);
}

TEST(Run, TellsOfAnAxisThatASignalEndsWhileItStops) {
  auto stopSignal = std::make_unique<host::StopSignal>();
  Prepared prepared(1, 100, 100);
  host::CommandBatch& stop = prepared.batches.emplace_back();
  stop.isStop = true;
  stop.atMs = 1010;
  stop.actuators = {0};
  Ran ran(prepared);
  ran.run([&](std::int64_t timeMs) {
    if (timeMs - ran.plan.schedule.approachMs == 1100) {
      EXPECT_TRUE(ran.axis(0).backlog.isStopping());
      std::raise(SIGTERM);
    }
  });
  EXPECT_EQ(ran.outcome.axes[0].verdict, host::Verdict::stopped);
  EXPECT_EQ(ran.axis(0).counts.reached + ran.axis(0).counts.cleared, 100U);
  stopSignal.reset();
  const host::StopSignal forgetting;
}

TEST(Run, WaitsForWhatOthersQueuedBeyondTheMotion) {
  Prepared prepared(2, 2, 100);
  host::CommandBatch& motion = prepared.batches[0];
  motion.actuators.pop_back();
  motion.values.resize(2);
  Ran ran(prepared);
  for (const char* key : {"j0/Value", "j1/Value"}) {
    CommandList others;
    others.emplace_back(hal::AttrGeneric(1.0F), 5000);
    getTimedCommandManager()->AddTimedCommand(key, others, TimedCommand::MERGE);
  }
  ran.run();
  EXPECT_GE(ran.torvex.result().counts.cycles, 501U);
  EXPECT_EQ(longestTimeline(), 0U);
  EXPECT_EQ(ran.axis(0).counts.reached, 2U);
  EXPECT_EQ(ran.axis(1).commanded(), 1.0);
}

/// Others clear what the engine has handed over, and queue more than leaves it room.
TEST(Run, TellsWhatOthersCleared) {
  const Prepared prepared(1, 300, 10);
  Ran ran(prepared);
  std::size_t held = 0;
  ran.run([&](std::int64_t timeMs) {
    CommandList others;
    if (timeMs == 200) {
      held = getTimedCommandManager()->actuatorCommands[0]->commandList.size();
      getTimedCommandManager()->AddTimedCommand("j0/Value", others, TimedCommand::REPLACE);
    } else if (timeMs == 1000) {
      for (std::uint32_t i = 0; i < 450; ++i) {
        others.emplace_back(hal::AttrGeneric(1.0F), 100'000 + i);
      }
      getTimedCommandManager()->AddTimedCommand("j0/Value", others, TimedCommand::MERGE);
    }
  });
  EXPECT_GE(held, host::windowItems);
  const std::uint64_t cleared = held - 1;
  EXPECT_EQ(ran.axis(0).counts.cleared, cleared) << "what was due in the next cycle is taken";
  EXPECT_EQ(ran.axis(0).counts.reached, 300U - cleared);
  EXPECT_EQ(ran.tally.of(host::EventKind::cleared).points, cleared);
}

TEST(Run, SaysWhichJointDidNotArrive) {
  Prepared setup(2, 50, 20);
  setup.machine.description.actuators[1].maximumVelocity = 0.01F;
  setup.options.timing.approachMs = 10;
  setup.options.session.guard = host::GuardMode::off;
  Ran ran(setup);
  ran.run();
  ASSERT_EQ(ran.outcome.errors.size(), 1U);
  EXPECT_EQ(ran.outcome.errors[0].text.rfind("j1: measured ", 0), 0U);
  EXPECT_EQ(ran.outcome.axes[0].verdict, host::Verdict::reached);
  EXPECT_EQ(ran.outcome.axes[1].verdict, host::Verdict::missed);
  EXPECT_EQ(ran.torvex.result().counts.cycles, (10 + 49 * 20 + 2000) / 10 + 1U)
      << "two seconds to settle";
}

}  // namespace
