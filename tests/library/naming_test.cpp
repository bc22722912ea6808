#include <gtest/gtest.h>

#include "attrfullname/attrfullname.h"
#include "fakeplatform.h"
#include "platform/hal/preference.h"

namespace {

class Naming : public testing::Test {
 protected:
  Naming() {
    platform.add("JointA", {"Position", nullptr});
    platform.add("Board1", {"Version"}, hal::deviceKind);
    platform.add("Other", {"Version"}, 2);
    platform.add("Bus/1", {"Value"}, hal::deviceKind);
    platform.add("JointA", {"Position"});
    names.initNameList(0);
  }

  FakePlatform platform;
  AttrFullName names;
};

const char* const keys[] = {"Device/SubDeviceList/JointA/Position", "",
                            "Device/DeviceList/Board1/Version",     "",
                            "Device/DeviceList/Bus/1/Value",        "Device/SubDeviceList/JointA/Position",
                            "Device/SubDeviceList/Late/Value"};

}  // namespace

TEST_F(Naming, GivesEveryIndexItsKey) {
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(names.getAttributeNameWithIndex(i), keys[i]) << i;
    EXPECT_EQ(names.computeAttributeFullName(i), keys[i]) << i;
  }
}

TEST_F(Naming, LeavesTheContainersNameUnreadWithoutAnAttributeName) {
  platform.take();
  EXPECT_EQ(names.computeAttributeFullName(1), "");
  EXPECT_EQ(platform.take(), "attribute 1");
  EXPECT_EQ(names.getZRMemoryNameForDevice(hal::DeviceAccessor(), &platform.attributes[1]), "");
}

TEST_F(Naming, GivesNoKeyWithoutAttributeOrContainer) {
  platform.containers[4].lastAttrIndex = 6;
  EXPECT_EQ(names.computeAttributeFullName(6), "");
  platform.containers[0].firstAttrIndex = 1;
  EXPECT_EQ(names.computeAttributeFullName(0), "");
}

TEST_F(Naming, FindsFullKeysAndBareSubDeviceForms) {
  const struct {
    const char* name;
    int index;
  } cases[] = {
      {"Device/SubDeviceList/JointA/Position", 5},  // of equal keys the last
      {"JointA/Position", 5},
      {"Device/DeviceList/Board1/Version", 2},
      {"Board1/Version", -1},
      {"Device/DeviceList/JointA/Position", -1},
      {"x/Device/DeviceList/Board1/Version", -1},
      {"Device/SubDeviceList/", -1},
      {"Device", -1},
      {"jointA/Position", -1},
      {"", -1},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(names.getAttributeIndexWithName(c.name), c.index) << c.name;
  }
}

TEST_F(Naming, PutsThePrefixBeforeANameThatHoldsOneFurtherInside) {
  platform.add("x/Device/DeviceList/A", {"B"});
  names.initNameList(6);
  EXPECT_EQ(names.getAttributeIndexWithName("x/Device/DeviceList/A/B"), 6);
}

TEST_F(Naming, ExtendsAndRebuilds) {
  platform.add("Late", {"Value"});
  platform.take();
  names.initNameList(6);
  EXPECT_EQ(platform.take(), "attribute 6, name of Late");
  names.initNameList(7);
  EXPECT_EQ(platform.take(), "");
  for (int i = 0; i < 7; ++i) {
    EXPECT_EQ(names.getAttributeNameWithIndex(i), keys[i]) << i;
  }
  names.initNameList(5);  // from within the list on: overwritten in place
  EXPECT_EQ(names.getAttributeNameWithIndex(6), keys[6]);
  EXPECT_EQ(names.getAttributeIndexWithName("Late/Value"), 6);
  platform.pool.attributeCount = 1;
  names.initNameList(0);
  EXPECT_EQ(names.getAttributeIndexWithName("JointA/Position"), 0);
  EXPECT_EQ(names.getAttributeIndexWithName("Late/Value"), -1);
}

TEST_F(Naming, RefusesANegativeStart) {
  EXPECT_THROW(names.initNameList(-1), std::length_error);
  EXPECT_EQ(names.getAttributeIndexWithName("JointA/Position"), 5);
}

TEST_F(Naming, GivesPreferencesTheirStoredNameLessItsMark) {
  const struct {
    const char* stored;
    const char* attributeName;
    const char* key;
  } cases[] = {
      {"/JointA/Stiffness", "Value", "JointA/Stiffness"},
      {"/JointA/Stiffness", "Offset", ""},
      {"/JointA/Stiffness", "Value2", ""},
      {"/JointA/Stiffness", "value", ""},
      {"/JointA/Stiffness", nullptr, ""},
      {"/Board1", "Value", ""},
      {"/JointA", "Value", ""},
  };
  for (const auto& c : cases) {
    hal::Preference preference{const_cast<char*>(c.stored)};
    hal::DeviceAttrGeneric attribute;
    attribute.name = const_cast<char*>(c.attributeName);
    EXPECT_EQ(names.getZRMemoryNameForPreference(&preference, &attribute), c.key) << c.stored;
    EXPECT_EQ(names.getZRMemoryNameForPreference(&preference, nullptr), "");
  }
}
