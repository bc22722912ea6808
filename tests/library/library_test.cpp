#include <boost/weak_ptr.hpp>

#include "attrfullname/attrfullname.h"
#include "fakeplatform.h"
#include "platform/hal/preference.h"
#include "registry/attrfullnamemanager.h"
#include "registry/brokermanager.h"
#include "registry/torvexmanager.h"
#include "timedcommandmanager/timedcommandmanager.h"

namespace {

/// A small machine, built, with a command of value 1 at time 10 everywhere.
struct Machine : testing::Test {
  Machine() {
    platform.add("Leg", {"Value", "Offset"}).actuator = true;
    platform.add("Arm", {"value", "Value2", nullptr, "Value", "Value"}).actuator = true;
    platform.add("x/Device/DeviceList/y", {"Value"});
    platform.add("Bus/1", {"Version"}).kind = hal::deviceKind;
    platform.add("Rack", {"Version", "Place"}).kind = 2;
    platform.owners[10] = nullptr;
    manager.initTimedCommand(0);
    for (TimedCommand& timeline : manager.commandTable) {
      timeline.commandList = {{hal::AttrGeneric(1), 10}};
    }
    names.initNameList(0);
    setAttrFullNameManager(&names);
    platform.take();
  }

  /// For every timeline the number of commands, the actuator if it is bound to
  /// one, and "~" if it interpolates; then the indexes that the cycle drives.
  std::string content() {
    std::string text;
    for (TimedCommand& timeline : manager.commandTable) {
      text += std::to_string(timeline.commandList.size());
      text += timeline.isSubDevice == 1 ? timeline.subDeviceAccessor.getName() : "";
      text += timeline.interpolationPossible == 1 ? "~ " : " ";
    }
    for (const TimedCommand* timeline : manager.actuatorCommands) {
      text += "->" + std::to_string(timeline - manager.commandTable.data());
    }
    return text;
  }

  FakePlatform platform;
  TimedCommandManager manager;
  AttrFullName names;
};

}  // namespace

TEST(Timeline, DistancesFollowTheWrapRule) {
  const std::tuple<unsigned int, unsigned int, int> cases[] = {
      {0, 0x40000001, -1073741822},
      {0x7FFFFFF0, 5, -20},
      {5, 0x7FFFFFF0, -10},
      {0x40000000, 0x80000001, 0x40000002},
      {0x40000001, 0x80000002, 0x40000000}};
  for (const auto& [a, b, distance] : cases) {
    EXPECT_EQ(timeDifference(a, b), distance) << std::hex << a << ' ' << b;
  }
}

TEST_F(Machine, BuildsBindActuatorValuesAlone) {
  platform.attributes[5].typeCode = 8;
  platform.containers["Leg"].interpolation = false;
  const auto lock = manager.commandTable[0].mutex;
  manager.initTimedCommand(0);
  manager.commandTable[7].testIfInterpolationPossible();  // needs no accessor
  EXPECT_EQ(content(), "0Leg 0 0 0 0 0Arm 0Arm~ 0~ 0 0 0 ->5->6->0");
  EXPECT_EQ(manager.commandTable[0].mutex, manager.commandTable[7].mutex);
  EXPECT_NE(manager.commandTable[0].mutex, lock);
}

TEST_F(Machine, PartialBuildsKeepAllButActuatorValues) {
  platform.add("Paw", {"Value", "Offset"}).actuator = true;
  platform.containers["Leg"].actuator = false;
  manager.initTimedCommand(11);
  EXPECT_EQ(platform.take(),
            "new-lock attribute-11 attribute-12 lock unlock lock unlock lock unlock");
  EXPECT_EQ(content(), "1Leg~ 1 1 1 1 0Arm~ 0Arm~ 1 1 1 1 0Paw~ 0 ->5->6->11");
  EXPECT_NE(manager.commandTable[0].mutex, manager.commandTable[11].mutex);
  EXPECT_EQ(manager.commandTable[11].mutex, manager.commandTable[12].mutex);
  platform.containers["Arm"].actuator = platform.containers["Paw"].actuator = false;
  platform.pool.attributeCount = 3;
  manager.initTimedCommand(11);
  platform.failing = "new-lock";
  EXPECT_THROW(manager.initTimedCommand(0), FakeFailure);
  EXPECT_EQ(content(), "1Leg~ 1 1 ");
}

TEST_F(Machine, CyclesDriveTheListedTimelinesInOrder) {
  manager.commandTable[5].interpolationPossible = 0;
  manager.commandTable[6].commandList.clear();
  manager.run(4, 2);
  EXPECT_EQ(platform.take(), "lock unlock lock read read limit:0 write:0 unlock");
  manager.run(7, 5);
  EXPECT_EQ(platform.take(), "lock unlock lock read limit:0.400000006 write:0.400000006 unlock");
  manager.run(10, 7);
  EXPECT_EQ(platform.take(), "lock set:1 unlock lock read limit:1 write:1 unlock");
}

TEST_F(Machine, ListsAreRoutedByNameOrIndex) {
  CommandList commands(600, {hal::AttrGeneric(1), 20});
  EXPECT_FALSE(manager.AddTimedCommand("Nose/Value", commands, TimedCommand::REPLACE));
  setTimedCommandManager(&manager);
  EXPECT_TRUE(
      getTimedCommandManager()->AddTimedCommand("Leg/Value", commands, TimedCommand::REPLACE));
  EXPECT_EQ(commands.size(), 600U) << "refused, which is no failure";
  commands.resize(2);
  EXPECT_TRUE(manager.AddTimedCommandWithIndex(1, commands, TimedCommand::MERGE));
  EXPECT_EQ(content(), "0Leg~ 3 1 1 1 1Arm~ 1Arm~ 1 1 1 1 ->5->6->0");
}

TEST_F(Machine, NamesAreFullKeysOrBareSubDeviceForms) {
  const std::map<std::string, int> cases = {{"Device/SubDeviceList/Arm/Value", 6},
                                            {"Arm/Value", 6},
                                            {"Device/DeviceList/Arm/Value", -1},
                                            {"Device/DeviceList/Bus/1/Version", 8},
                                            {"Bus/1/Version", -1},
                                            {"x/Device/DeviceList/y/Value", 7}};
  for (const auto& [name, index] : cases) {
    EXPECT_EQ(manager.testActuatorName(name), index) << name;
  }
}

TEST_F(Machine, EveryIndexHasItsKeyAlsoAfterRebuilds) {
  platform.add("Late", {"Value"}).kind = 2;
  names.initNameList(11);
  platform.containers["Late"].kind = hal::deviceKind;
  for (const int first : {9, 0, 12}) {
    names.initNameList(first);
    std::string keys;
    for (int i = 3; i < 12; ++i) {
      keys += names.getAttributeNameWithIndex(i) + ' ';
    }
    EXPECT_EQ(keys,
              "Device/SubDeviceList/Arm/Value2  Device/SubDeviceList/Arm/Value "
              "Device/SubDeviceList/Arm/Value Device/SubDeviceList/x/Device/DeviceList/y/Value "
              "Device/DeviceList/Bus/1/Version   Device/DeviceList/Late/Value ");
  }
  platform.attributes.erase(5);
  EXPECT_EQ(names.computeAttributeFullName(5), "");
  platform.pool.attributeCount = 6;
  names.initNameList(0);
  EXPECT_EQ(manager.testActuatorName("Device/DeviceList/Late/Value"), -1);
  EXPECT_THROW(names.initNameList(-1), std::length_error);
}

TEST_F(Machine, PreferencesGiveTheirStoredNameLessItsMark) {
  const char* const cases[][3] = {{"/Arm/Speed", "Value", "Arm/Speed"},
                                  {"/Arm/Speed", "Value2", ""},
                                  {"/Arm/Speed", nullptr, ""},
                                  {"/Bus/1", "Value", ""}};
  for (const auto& [stored, attributeName, key] : cases) {
    hal::Preference preference;
    preference.name = const_cast<char*>(stored);
    platform.attributes[0].name = const_cast<char*>(attributeName);
    EXPECT_EQ(names.getZRMemoryNameForPreference(&preference, &platform.attributes[0]), key);
    EXPECT_EQ(names.getZRMemoryNameForPreference(&preference, nullptr), "");
  }
}

class Torvex {};

template <class Object>
void expectSlotToHoldTheLastOne(Object* (*get)(), void (*set)(Object*)) {
  Object objects[2];
  for (Object* object : {&objects[0], &objects[1], static_cast<Object*>(nullptr)}) {
    set(object);
    EXPECT_EQ(get(), object);
  }
}

TEST(Registry, SlotsHoldTheLastOne) {
  EXPECT_EQ(getTorvexManager(), nullptr);
  expectSlotToHoldTheLastOne(getTorvexManager, setTorvexManager);
  expectSlotToHoldTheLastOne(getAttrFullNameManager, setAttrFullNameManager);
  expectSlotToHoldTheLastOne(getTimedCommandManager, setTimedCommandManager);
}

TEST(Registry, BrokerLivesAsLongAsAnybodyHoldsIt) {
  EXPECT_EQ(getBrokerManager(), nullptr);
  setBrokerManager(boost::shared_ptr<FakeBroker>(new FakeBroker));
  const boost::weak_ptr<ZR::ZRBroker> broker = getBrokerManager();
  setBrokerManager(getBrokerManager());
  EXPECT_EQ(broker.use_count(), 1);
  auto copy = getBrokerManager();
  setBrokerManager(nullptr);
  EXPECT_EQ(broker.use_count(), 1);
  copy.reset();
  EXPECT_TRUE(broker.expired());
}
