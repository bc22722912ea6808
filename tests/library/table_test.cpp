#include <gtest/gtest.h>

#include "attrfullname/attrfullname.h"
#include "commandtext.h"
#include "fakeplatform.h"
#include "registry/attrfullnamemanager.h"
#include "timedcommandmanager/timedcommandmanager.h"

namespace {

/// Attribute indexes: Leg 2 and 3, Arm 0 and 1, in this order of sub-devices;
/// then Board 4, Eye 5, Hand 6 to 10.
class Table : public testing::Test {
 protected:
  Table() {
    platform.addActuator("Leg", {"Value", "Offset"});
    platform.addActuator("Arm", {"Value", "Offset"});
    std::swap(platform.containers[0].firstAttrIndex, platform.containers[1].firstAttrIndex);
    std::swap(platform.containers[0].lastAttrIndex, platform.containers[1].lastAttrIndex);
    platform.add("Board", {"Value"});
    platform.add("Eye", {"Value"});
    platform.addActuator("Hand", {"value", "Value2", nullptr, "Value", "Value"}).interpolation =
        false;
    manager.initTimedCommand(0);
  }

  void queueEverywhere() {
    for (TimedCommand& timeline : manager.commandTable) {
      timeline.commandList = listOf("10");
    }
  }

  std::string listed() {
    std::string indexes;
    for (const TimedCommand* timeline : manager.actuatorCommands) {
      indexes += ' ' + std::to_string(timeline - manager.commandTable.data());
    }
    return indexes;
  }

  /// One digit an attribute: how many commands wait there.
  std::string queued() {
    std::string counts;
    for (const TimedCommand& timeline : manager.commandTable) {
      counts += std::to_string(timeline.commandList.size());
    }
    return counts;
  }

  FakePlatform platform;
  TimedCommandManager manager;
};

}  // namespace

TEST_F(Table, ListsTheActuatorsInThePlatformsOrder) {
  EXPECT_EQ(listed(), " 2 0 9 10");
  manager.initTimedCommand(0);
  EXPECT_EQ(listed(), " 2 0 9 10");
}

TEST_F(Table, BindsActuatorValuesOnly) {
  const int bound[] = {1, 0, 1, 0, 0, 0, 0, 0, 0, 1, 1};
  const int interpolated[] = {1, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0};
  ASSERT_EQ(manager.commandTable.size(), 11U);
  for (std::size_t i = 0; i < 11; ++i) {
    const TimedCommand& timeline = manager.commandTable[i];
    EXPECT_EQ(timeline.deviceAttr, &platform.attributes[i]) << i;
    EXPECT_EQ(timeline.isSubDevice, bound[i]) << i;
    EXPECT_EQ(timeline.interpolationPossible, interpolated[i]) << i;
    EXPECT_EQ(timeline.mutex, manager.commandTable[0].mutex) << i;
  }
  EXPECT_STREQ(manager.commandTable[0].subDeviceAccessor.getName(), "Arm");
  EXPECT_STREQ(manager.commandTable[2].subDeviceAccessor.getName(), "Leg");
}

TEST_F(Table, FullBuildStartsAfresh) {
  queueEverywhere();
  const auto firstLock = manager.commandTable[0].mutex;
  platform.containers[4].actuator = false;
  manager.initTimedCommand(0);
  EXPECT_EQ(queued(), "00000000000");
  EXPECT_EQ(listed(), " 2 0");
  EXPECT_EQ(manager.commandTable[9].isSubDevice, 0);
  EXPECT_NE(manager.commandTable[0].mutex, firstLock);
}

TEST_F(Table, PartialBuildKeepsAllButActuatorValues) {
  queueEverywhere();
  platform.addActuator("Foot", {"Value", "Offset"});
  platform.take();
  manager.initTimedCommand(11);
  EXPECT_EQ(queued(), "0101111110000");
  EXPECT_EQ(listed(), " 2 0 9 10 11");
  std::string expected = "new lock, attribute 11, attribute 12";
  for (std::size_t i = 0; i < manager.actuatorCommands.size(); ++i) {
    expected += ", lock, unlock";
  }
  EXPECT_EQ(platform.take(), expected);
  EXPECT_EQ(manager.commandTable[0].mutex, manager.commandTable[10].mutex);
  EXPECT_NE(manager.commandTable[0].mutex, manager.commandTable[11].mutex);
  EXPECT_EQ(manager.commandTable[11].mutex, manager.commandTable[12].mutex);
}

TEST_F(Table, PartialBuildCanShrink) {
  queueEverywhere();
  platform.containers.resize(3);
  platform.containers[0].actuator = false;
  platform.pool.attributeCount = 5;
  platform.take();
  manager.initTimedCommand(11);
  EXPECT_EQ(platform.take(), "new lock, lock, unlock");
  EXPECT_EQ(queued(), "01111");
  EXPECT_EQ(listed(), " 0");
  EXPECT_EQ(manager.commandTable[2].isSubDevice, 1);
}

TEST_F(Table, PartialBuildReadsHandlesAgainFromItsStart) {
  for (TimedCommand& timeline : manager.commandTable) {
    timeline.deviceAttr = &platform.attributes[6];
  }
  manager.initTimedCommand(9);
  EXPECT_EQ(manager.commandTable[8].deviceAttr, &platform.attributes[6]);
  EXPECT_EQ(manager.commandTable[9].deviceAttr, &platform.attributes[9]);
  // Names are asked for the handles that the table holds.
  EXPECT_EQ(listed(), " 9 10");
}

TEST_F(Table, FollowsTheAttributeCountFromNoneToItsLargest) {
  platform.containers.clear();
  for (const int count : {0, 65535}) {
    platform.pool.attributeCount = static_cast<std::uint16_t>(count);
    manager.initTimedCommand(0);
    EXPECT_EQ(manager.commandTable.size(), static_cast<std::size_t>(count));
    EXPECT_EQ(listed(), "");
  }
}

TEST_F(Table, StaysAsItWasWhenNoLockCanBeMade) {
  queueEverywhere();
  platform.failing = "new lock";
  for (const int start : {0, 11}) {
    EXPECT_THROW(manager.initTimedCommand(start), FakeFailure);
    EXPECT_EQ(queued(), "11111111111");
    EXPECT_EQ(listed(), " 2 0 9 10");
  }
}

TEST_F(Table, RoutesByIndexAndReportsRefusalsAsDelivered) {
  CommandList commands = listOf("10 20");
  EXPECT_TRUE(manager.AddTimedCommandWithIndex(5, commands, TimedCommand::MERGE));
  EXPECT_EQ(queued(), "00000200000");
  CommandList many(512, TimedCommand::commandItem(hal::AttrGeneric(), 5));
  EXPECT_TRUE(manager.AddTimedCommandWithIndex(5, many, TimedCommand::REPLACE));
  EXPECT_EQ(queued(), "00000000000");
  EXPECT_EQ(many.size(), 512U);
}

TEST_F(Table, RoutesByEveryNameThatTheNameTableKnows) {
  AttrFullName names;
  names.initNameList(0);
  setAttrFullNameManager(&names);
  for (const char* const name : {"Arm/Value", "Device/SubDeviceList/Eye/Value", "Leg/Offset"}) {
    CommandList commands = listOf("10");
    EXPECT_TRUE(manager.AddTimedCommand(name, commands, TimedCommand::MERGE)) << name;
    EXPECT_TRUE(commands.empty());
  }
  EXPECT_EQ(queued(), "10010100000");
  CommandList commands = listOf("20 10");
  EXPECT_FALSE(manager.AddTimedCommand("Nose/Value", commands, TimedCommand::REPLACE));
  EXPECT_EQ(textOf(commands), "20 10");
  EXPECT_EQ(queued(), "10010100000");
  EXPECT_EQ(manager.testActuatorName("Eye/Value"), 5);
  EXPECT_EQ(manager.testActuatorName("Nose/Value"), -1);
  setAttrFullNameManager(nullptr);
}

TEST_F(Table, RunsListedTimelinesOnceInOrder) {
  for (std::size_t i = 0; i < manager.commandTable.size(); ++i) {
    manager.commandTable[i].interpolationPossible = 0;
    manager.commandTable[i].commandList = listOf("10=" + std::to_string(i + 1));
  }
  platform.take();
  manager.run(10, 0);
  EXPECT_EQ(platform.take(),
            "lock, set 3, unlock, lock, set 1, unlock, lock, set 10, unlock, lock, set 11, unlock");
  EXPECT_EQ(queued(), "01011111100");
  TimedCommandManager().run(10, 0);
  EXPECT_EQ(platform.take(), "");
}

TEST_F(Table, RunHandsBothTimesOn) {
  manager.commandTable[0].commandList = listOf("100=10");
  manager.run(40, 30);  // resynchronises at 0
  platform.take();
  manager.run(70, 60);
  EXPECT_EQ(platform.take(), "lock, read, limit 2.5, write 2.5, unlock");
}
