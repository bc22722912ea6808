#include <gtest/gtest.h>

#include <boost/weak_ptr.hpp>

#include "attrfullname/attrfullname.h"
#include "fakeplatform.h"
#include "platform/hal/preference.h"
#include "registry/attrfullnamemanager.h"
#include "registry/brokermanager.h"
#include "registry/torvexmanager.h"
#include "timedcommandmanager/timedcommandmanager.h"

namespace {

struct Names : testing::Test {
  Names() {
    platform.add("Arm", {"Value2", nullptr, "Value", "Value"});
    platform.add("x/Device/DeviceList/y", {"Value"});
    platform.add("Bus/1", {"Version"}).kind = hal::deviceKind;
    platform.add("Rack", {"Version", "Place"}).kind = 2;
    platform.owners[7] = nullptr;
    names.initNameList(0);
    setAttrFullNameManager(&names);
  }

  FakePlatform platform;
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

TEST_F(Names, AreFullKeysOrBareSubDeviceForms) {
  const std::map<std::string, int> cases = {{"Device/SubDeviceList/Arm/Value", 3},
                                            {"Arm/Value", 3},
                                            {"Device/DeviceList/Arm/Value", -1},
                                            {"Device/DeviceList/Bus/1/Version", 5},
                                            {"Bus/1/Version", -1},
                                            {"x/Device/DeviceList/y/Value", 4}};
  TimedCommandManager manager;
  for (const auto& [name, index] : cases) {
    EXPECT_EQ(manager.testActuatorName(name), index) << name;
  }
  CommandList commands(1);
  EXPECT_FALSE(manager.AddTimedCommand("Nose/Value", commands, TimedCommand::REPLACE));
  EXPECT_EQ(commands.size(), 1U);
}

TEST_F(Names, BelongToEveryIndexAlsoAfterRebuilds) {
  platform.add("Late", {"Value"}).kind = 2;
  names.initNameList(8);
  platform.containers["Late"].kind = hal::deviceKind;
  for (const int first : {6, 0, 9}) {
    names.initNameList(first);
    std::string keys;
    for (int i = 0; i < 9; ++i) {
      keys += names.getAttributeNameWithIndex(i) + ' ';
    }
    EXPECT_EQ(keys,
              "Device/SubDeviceList/Arm/Value2  Device/SubDeviceList/Arm/Value "
              "Device/SubDeviceList/Arm/Value Device/SubDeviceList/x/Device/DeviceList/y/Value "
              "Device/DeviceList/Bus/1/Version   Device/DeviceList/Late/Value ");
  }
  platform.attributes.erase(2);
  EXPECT_EQ(names.computeAttributeFullName(2), "");
  platform.pool.attributeCount = 6;
  names.initNameList(0);
  EXPECT_EQ(names.getAttributeIndexWithName("Device/DeviceList/Late/Value"), -1);
  EXPECT_THROW(names.initNameList(-1), std::length_error);
}

TEST_F(Names, OfPreferencesAreStoredWithAMark) {
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
