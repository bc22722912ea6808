#include <gtest/gtest.h>

#include <algorithm>
#include <boost/weak_ptr.hpp>
#include <cstring>

#include "attrfullname/attrfullname.h"
#include "fakeplatform.h"
#include "platform/hal/preference.h"
#include "registry/attrfullnamemanager.h"
#include "registry/brokermanager.h"
#include "registry/torvexmanager.h"
#include "tests/support/random.h"
#include "timedcommandmanager/timedcommandmanager.h"

namespace {

constexpr const char* subDevices = "Device/SubDeviceList/";
constexpr const char* devices = "Device/DeviceList/";

/// A machine whose names are made to be taken for each other, with the rules of keys.
struct Names {
  explicit Names(unsigned seed) : random(seed) { setAttrFullNameManager(&names); }

  void addContainer() {
    static constexpr const char* containers[] = {"Arm",
                                                 "Device",
                                                 "Device/SubDeviceList",
                                                 "Device/SubDeviceListX",
                                                 "Device/DeviceList",
                                                 "x/Device/DeviceList",
                                                 "device/devicelist"};
    const int first = platform.pool.attributeCount;
    const std::uint32_t which = random.below(7);
    platform.add(containers[which], {"Value", "D", "Value"}).kind =
        static_cast<std::uint8_t>((which + firstKind) % 3);
    platform.attributes[first].name = const_cast<char*>(random.chance(80) ? "Sub" : nullptr);
    if (random.chance(20)) {
      platform.attributes.erase(first + 1);
    }
    if (random.chance(20)) {
      platform.owners[first + 2] = nullptr;
    }
  }

  std::string key(int index) {
    const FakeContainer* owner = platform.owners[index];
    const auto found = platform.attributes.find(index);
    const bool hasKey = found != platform.attributes.end() && found->second.name != nullptr &&
                        owner != nullptr && owner->kind < 2;
    return !hasKey ? ""
                   : (owner->kind == hal::deviceKind ? devices : subDevices) +
                         std::string(owner->name.get()) + "/" + found->second.name.get();
  }

  int find(const std::string& name) {
    const bool isFull = name.rfind(devices, 0) == 0 || name.rfind(subDevices, 0) == 0;
    int index = platform.pool.attributeCount - 1;
    while (index >= 0 && key(index) != (isFull ? name : subDevices + name)) {
      --index;
    }
    return index;
  }

  Random random;
  const std::uint32_t firstKind = random.below(3);
  FakePlatform platform;
  AttrFullName names;
  TimedCommandManager manager;
};

}  // namespace

TEST(AttrFullName, FollowsTheRulesOfKeys) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    Names tried(seed);
    for (int held = 0, build = 0; build < 3; ++build) {
      for (std::uint32_t more = 1 + tried.random.below(3); more > 0; --more) {
        tried.addContainer();
      }
      tried.names.initNameList(
          static_cast<int>(tried.random.below(1U + static_cast<unsigned>(held))));
      held = tried.platform.pool.attributeCount;
      for (int index = 0; index < held; ++index) {
        const std::string key = tried.key(index);
        ASSERT_EQ(tried.names.getAttributeNameWithIndex(index), key) << seed;
        const std::string bare = key.substr(std::min(key.size(), std::strlen(subDevices)));
        for (const std::string& name :
             {key, bare, key + "x", key + '\0', bare + '\0', bare.substr(0, bare.size() / 2),
              "x/" + key, "d" + key.substr(key.empty() ? 0 : 1)}) {
          ASSERT_EQ(tried.manager.testActuatorName(name), tried.find(name)) << seed << ' ' << name;
        }
      }
    }
  }
}

TEST(AttrFullName, RefusesANegativeIndexAndForgetsWhatIsBuiltAnew) {
  FakePlatform platform;
  AttrFullName names;
  platform.add("Late", {"Value", "Old", "Kept"});
  names.initNameList(0);
  platform.attributes[1].name = const_cast<char*>("New");
  names.initNameList(1);
  EXPECT_EQ(names.getAttributeNameWithIndex(1), "Device/SubDeviceList/Late/New");
  EXPECT_EQ(names.getAttributeIndexWithName("Late/New"), 1);
  EXPECT_THROW(names.initNameList(-1), std::length_error);
  EXPECT_EQ(names.getAttributeIndexWithName("Late/Value"), 0);
  platform.pool.attributeCount = 0;
  names.initNameList(0);
  EXPECT_EQ(names.getAttributeIndexWithName("Late/Value"), -1);
}

TEST(AttrFullName, OfPreferencesIsStoredWithAMark) {
  FakePlatform platform;
  platform.add("Bus/1", {"any"});
  for (const char* stored : {"/Arm/Speed", ":Bus/", "/Bus/1", "", "/"}) {
    for (const char* name : {"Value", "Value2", "Val", "xValue", "value", "", "0"}) {
      hal::Preference preference;
      preference.name = const_cast<char*>(stored);
      platform.attributes[0].name = const_cast<char*>(*name == '0' ? nullptr : name);
      const std::string key = std::string(stored).erase(0, 1);
      const bool hasKey = std::string(name) == "Value" && key != "Bus/1";
      AttrFullName names;
      EXPECT_EQ(names.getZRMemoryNameForPreference(&preference, &platform.attributes[0]),
                hasKey ? key : "");
      EXPECT_EQ(names.getZRMemoryNameForPreference(&preference, nullptr), "");
    }
  }
}

TEST(Tables, HoldTheMostAttributes) {
  FakePlatform platform;
  platform.pool.attributeCount = 0xFFFD;
  platform.add("Far", {"Other", "Value"}).actuator = true;
  AttrFullName names;
  names.initNameList(0);
  setAttrFullNameManager(&names);
  EXPECT_EQ(names.getAttributeNameWithIndex(0xFFFD), "Device/SubDeviceList/Far/Other");
  TimedCommandManager manager;
  manager.initTimedCommand(0);
  EXPECT_EQ(manager.commandTable.size(), 0xFFFFU);
  CommandList commands(1, {hal::AttrGeneric(1), 5});
  EXPECT_TRUE(manager.AddTimedCommand("Far/Value", commands, TimedCommand::MERGE));
  ASSERT_EQ(manager.actuatorCommands.size(), 1U);
  EXPECT_EQ(manager.actuatorCommands[0]->getNextCommand()->time, 5U);
  commands.resize(1);
  EXPECT_FALSE(manager.AddTimedCommand("Near/Value", commands, TimedCommand::REPLACE));
  EXPECT_EQ(commands.size(), 1U);
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

/// At its end the next one has its place already.
struct LastBroker : FakeBroker {
  ~LastBroker() override { EXPECT_NE(getBrokerManager(), nullptr); }
};

TEST(Registry, BrokerLivesAsLongAsAnybodyHoldsIt) {
  EXPECT_EQ(getBrokerManager(), nullptr);
  setBrokerManager(boost::shared_ptr<LastBroker>(new LastBroker));
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
