#include <gtest/gtest.h>

#include "commandtext.h"
#include "fakeplatform.h"
#include "timedcommand/timedcommand.h"

TEST(TimeDifference, FollowsTheWrapRule) {
  const struct {
    unsigned int a, b;
    int difference;
  } cases[] = {
      {5, 3, 2},
      {3, 5, -2},
      {5, 0xFFFFFFFB, 10},
      {0xFFFFFFFF, 0xFFFFFFFF, 0},
      {0x40000000, 0, 0x40000000},
      {0, 0x40000000, -0x40000000},
      {0x40000001, 0, -1073741822},
      {0, 0x40000001, -1073741822},
      {0x7FFFFFF0, 5, -20},
      {5, 0x7FFFFFF0, -10},
      {0, 0x7FFFFFFF, 0},
      {0x7FFFFFFF, 0, 0},
      {0x80000000, 0, 1},
      {0, 0x80000000, 1},
      {0x40000000, 0x80000001, 0x40000002},
      {0x40000001, 0x80000002, 0x40000000},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(timeDifference(c.a, c.b), c.difference) << std::hex << c.a << ' ' << c.b;
  }
}

TEST(Timeline, CopiesHoldTheirOwnCommandsAndShareTheLock) {
  FakePlatform platform;
  TimedCommand source;
  source.commandList = listOf("10=1 20=2!");
  TimedCommand assigned;
  assigned.commandList = listOf("1 2 3");
  assigned = source;
  const TimedCommand constructed(source);
  EXPECT_EQ(platform.take(), "new lock, new lock");
  for (const TimedCommand* copy : {&assigned, &constructed}) {
    EXPECT_EQ(textOf(copy->commandList), "10=1 20=2!");
    EXPECT_NE(&copy->commandList.front(), &source.commandList.front());
    EXPECT_EQ(copy->mutex, source.mutex);
  }
}

TEST(Timeline, CannotBeMadeWithoutALock) {
  FakePlatform platform;
  platform.failing = "new lock";
  EXPECT_THROW(TimedCommand(), FakeFailure);
}

TEST(Timeline, PreallocationEmptiesUnderTheLock) {
  FakePlatform platform;
  TimedCommand timeline;
  timeline.commandList = listOf("10 20");
  timeline.preAllocate();
  EXPECT_EQ(textOf(timeline.commandList), "");
  EXPECT_EQ(platform.take(), "new lock, lock, unlock");
}

TEST(Timeline, InterpolatesFloatsThatTheActuatorAllows) {
  const struct {
    std::uint8_t typeCode;
    int isSubDevice;
    bool allowed;
    int possible;
  } cases[] = {{7, 0, false, 1}, {7, 1, true, 1}, {7, 1, false, 0}, {6, 0, true, 0}, {8, 1, true, 0}};
  for (const auto& c : cases) {
    FakePlatform platform;
    FakeContainer& arm = platform.addActuator("Arm", {"Value"});
    arm.interpolation = c.allowed;
    TimedCommand timeline;
    timeline.deviceAttr = &platform.attributes[0];
    timeline.deviceAttr->typeCode = c.typeCode;
    timeline.subDeviceAccessor = hal::SubDeviceAccessor(&arm);
    timeline.isSubDevice = c.isSubDevice;
    timeline.interpolationPossible = 1 - c.possible;
    timeline.testIfInterpolationPossible();
    EXPECT_EQ(timeline.interpolationPossible, c.possible)
        << int{c.typeCode} << c.isSubDevice << c.allowed;
  }
}
