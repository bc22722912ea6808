#include <gtest/gtest.h>

#include <cmath>

#include "commandtext.h"
#include "fakeplatform.h"

namespace {

/// The timeline of an actuator that stands where the timeline last put it.
class Cycle : public testing::Test {
 protected:
  Cycle() {
    timeline.deviceAttr = &platform.attributes[0];
    timeline.subDeviceAccessor = hal::SubDeviceAccessor(&arm);
    timeline.isSubDevice = 1;
    timeline.interpolationPossible = 1;
  }

  /// As after a command with this value was reached at `time`.
  void reached(unsigned int time, float value, float current) {
    timeline.firstCommand = false;
    timeline.lastCommandTime = time;
    timeline.lastCommandValue = value;
    timeline.currentValue = current;
    arm.command = current;
  }

  std::string run(unsigned int time, unsigned int previousTime) {
    platform.take();
    timeline.run(time, previousTime);
    return platform.take();
  }

  std::string queue() { return textOf(timeline.commandList); }

  FakePlatform platform;
  FakeContainer& arm = platform.addActuator("Arm", {"Value"});
  TimedCommand timeline;
};

}  // namespace

TEST_F(Cycle, OfAnEmptyTimelineDoesNothing) {
  EXPECT_EQ(run(100, 90), "");
  timeline.interpolationPossible = 0;
  EXPECT_EQ(run(100, 90), "");
}

TEST_F(Cycle, StepLawWritesWhatIsDue) {
  timeline.interpolationPossible = 0;
  const struct {
    const char* queued;
    const char* calls;
    const char* rest;
  } cases[] = {
      {"90=1 95=2 100=3 110=4", "set 1, set 2, set 3, ", "110=4"},
      {"100=1 100=2", "set 1, ", "100=2"},
      {"101=1", "", "101=1"},
      {"90=1! 95=2 110=3! 120=4", "set 2, ", "120=4"},
      {"110=1! 90=2!", "", ""},
  };
  for (const auto& c : cases) {
    timeline.commandList = listOf(c.queued);
    EXPECT_EQ(run(100, 90), std::string("lock, ") + c.calls + "unlock") << c.queued;
    EXPECT_EQ(queue(), c.rest);
  }
  EXPECT_TRUE(timeline.firstCommand);
}

TEST_F(Cycle, StepLawWritesTheWholeRecord) {
  timeline.interpolationPossible = 0;
  timeline.commandList = listOf("100");
  timeline.commandList.front().value.asTextOffset = 0x123456789ABCDEF0;
  run(100, 90);
  EXPECT_EQ(platform.attributes[0].value.asTextOffset, 0x123456789ABCDEF0);
}

TEST_F(Cycle, LinearLawFollowsTheLine) {
  const struct {
    unsigned int lastTime;
    float lastValue, current;
    const char* queued;
    unsigned int time, previousTime;
    float written;
    const char* rest;
  } cases[] = {
      {1000, 0, 4.9F, "2000=10", 1500, 1490, 10 * (10 - 4.9F) / 510 + 4.9F, "2000=10"},
      {0, 0, 7, "1005=2 1105=12", 1010, 1000, 2.5F, "1105=12"},
      {1000, 1, 3, "1020=5", 1010, 1000, 3, "1020=5"},    // within the latest cycle: from 1
      {999, 1, 3, "1020=5", 1010, 1000, 4, "1020=5"},     // longer ago: from 3
      {1010, 1, 3, "1020=5!", 1010, 1010, 3, ""},         // emptied by the law
      {0, 0, 0, "100=1 100=2", 100, 90, 1, "100=2"},      // due now ends the pass
      {0, 0, 0, "80=1 90=2 95=3", 100, 90, 3, ""},        // all overdue
      {0, 0, 0, "80=1 100=2! 101=3", 100, 90, 1 + 2 * 20 / 21.F, "101=3"},
      {2000, 10, 10, "2000=20", 1000, 990, 1000 * -10.F, "2000=20"},  // no span: as if it were 1
      {0, 0, 0, "0xfffffff6=2 10=4", 0, 0xFFFFFFF0, 3, "10=4"},
  };
  for (const auto& c : cases) {
    reached(c.lastTime, c.lastValue, c.current);
    timeline.commandList = listOf(c.queued);
    const std::string value = textOf(c.written);
    EXPECT_EQ(run(c.time, c.previousTime),
              "lock, read, limit " + value + ", write " + value + ", unlock")
        << c.queued;
    EXPECT_EQ(queue(), c.rest);
    EXPECT_EQ(timeline.currentValue, c.written);
  }
}

TEST_F(Cycle, LinearLawContinuesFromTheLimitedValue) {
  arm.maximum = 3;
  reached(0, 0, 0);
  timeline.commandList = listOf("100=10");
  EXPECT_EQ(run(50, 40), "lock, read, limit 1.66666663, write 1.66666663, unlock");
  EXPECT_EQ(run(90, 50), "lock, read, limit 8.33333302, write 3, unlock");
  EXPECT_EQ(timeline.currentValue, 3);
  EXPECT_EQ(run(95, 90), "lock, read, limit 6.5, write 3, unlock");
}

TEST_F(Cycle, LinearLawTakesAFirstCommandAtOnceWhereTheActuatorAgrees) {
  timeline.currentValue = 0;
  timeline.commandList = listOf("2000=10 3000=20");
  EXPECT_EQ(run(1000, 990), "lock, read, limit 10, write 10, unlock");
  EXPECT_EQ(run(1010, 1000), "lock, read, limit 10, write 10, unlock");
  EXPECT_EQ(queue(), "2000=10 3000=20");
  EXPECT_EQ(timeline.lastCommandTime, 2000U);
  EXPECT_EQ(run(2000, 1990), "lock, read, limit 10, write 10, unlock");
  EXPECT_EQ(queue(), "3000=20");
}

TEST_F(Cycle, LinearLawApproachesAFirstCommandFromWhereTheActuatorStands) {
  timeline.commandList = listOf("200=10");
  EXPECT_EQ(run(100, 90), "lock, read, read, limit 0, write 0, unlock");
  EXPECT_FALSE(timeline.firstCommand);
  EXPECT_EQ(timeline.lastCommandTime, 100U);
  EXPECT_EQ(run(110, 100), "lock, read, limit 1, write 1, unlock");
}

TEST_F(Cycle, ResynchronisesWithTheSecondReading) {
  reached(0, 0, 5);
  timeline.commandList = listOf("200=10");
  arm.readings = {6, 8};
  EXPECT_EQ(run(100, 90), "lock, read, read, limit 8, write 8, unlock");
  EXPECT_EQ(timeline.lastCommandValue, 8);
  EXPECT_EQ(timeline.lastCommandTime, 100U);
  EXPECT_EQ(run(150, 100), "lock, read, limit 9, write 9, unlock");
  EXPECT_EQ(timeline.lastCommandTime, 100U);
}

TEST_F(Cycle, ResynchronisesAlwaysWithAnActuatorThatReportsNoNumber) {
  timeline.commandList = listOf("200=10");
  for (const unsigned int time : {100U, 110U}) {
    arm.readings = {NAN, NAN};
    EXPECT_EQ(run(time, time - 10).substr(0, 16), "lock, read, read");
    EXPECT_EQ(timeline.lastCommandTime, time);
  }
}

TEST_F(Cycle, LinearLawWritesUnlimitedWhereNoSubDeviceIsBound) {
  timeline.isSubDevice = 0;
  arm.maximum = 1;
  reached(0, 0, 0);
  timeline.commandList = listOf("100=10 200=20");
  EXPECT_EQ(run(50, 0), "lock, read, unlock");
  EXPECT_EQ(platform.attributes[0].loadFloat(), 5);
  arm.command = 5;
  platform.attributes[0].flags = 0x40;
  EXPECT_EQ(run(100, 50), "lock, read, track 10, unlock");
  platform.attributes[0].flags = 0xBF;
  arm.command = 10;
  EXPECT_EQ(run(150, 100), "lock, read, unlock");
}

TEST_F(Cycle, ReleasesTheLockWhenThePlatformThrows) {
  for (const char* const operation : {"lock", "read", "limit", "write"}) {
    reached(0, 0, 0);
    timeline.commandList = listOf("100=10");
    platform.failing = operation;
    EXPECT_THROW(timeline.run(50, 40), FakeFailure) << operation;
    EXPECT_EQ(platform.locksHeld, 0) << operation;
    EXPECT_EQ(queue(), "100=10") << operation;
  }
  timeline.interpolationPossible = 0;
  timeline.commandList = listOf("40=1! 50=2");
  platform.failing = "set";
  EXPECT_THROW(timeline.run(60, 40), FakeFailure);
  EXPECT_EQ(platform.locksHeld, 0);
  EXPECT_EQ(queue(), "50=2");
}

TEST_F(Cycle, HeadIsReadAndTakenUnderTheLock) {
  timeline.commandList = listOf("10=1! 20=2");
  platform.take();
  EXPECT_EQ(timeline.getNextCommand(), &timeline.commandList.front());
  EXPECT_EQ(platform.take(), "lock, unlock");
  const TimedCommand::commandItem head = timeline.popNexCommand();
  EXPECT_EQ(platform.take(), "lock, unlock");
  EXPECT_EQ(head.time, 10U);
  EXPECT_EQ(head.value.asFloat, 1);
  EXPECT_TRUE(head.ignore);
  EXPECT_EQ(queue(), "20=2");
}
