#include "preferences/exportqelvopreferences.h"

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include "fakeplatform.h"
#include "platform/zr/zrexception.h"
#include "registry/brokermanager.h"

namespace {

/// A tree on one line, every type told apart.
std::string drawn(const ZR::ZRValue& value) {
  switch (value.getType()) {
    case ZR::ZRValue::intType:
      return std::to_string(value.asInt());
    case ZR::ZRValue::floatType:
      return callWith("f", value.asFloat());
    case ZR::ZRValue::stringType:
      return "'" + value.asString() + "'";
    case ZR::ZRValue::arrayType: {
      std::string elements;
      for (int i = 0; i < value.getSize(); ++i) {
        elements += (i == 0 ? "" : " ") + drawn(value[i]);
      }
      return "[" + elements + "]";
    }
    default:
      return "-";
  }
}

struct Preferences : testing::Test {
  Preferences() { setBrokerManager(boost::make_shared<FakeBroker>()); }
  ~Preferences() override { setBrokerManager(nullptr); }

  FakePlatform platform;
  FakeContainer& arm = platform.add("Arm", {});
  FakeContainer& leg = platform.add("arm", {});
};

TEST_F(Preferences, BecomeATreeOfUniqueKeys) {
  platform.prefer(arm, "/Zero", 5).value.asInt = 3;
  platform.prefer(leg, "/Other", 1);
  platform.prefer(arm, "/Whole", 1).value.asInt = -1;
  platform.prefer(arm, "/Sixth", 6).value.asInt = -6;
  platform.prefer(arm, "/Empty", 1).inUse = 0;
  platform.prefer(arm, "/Half", 7).value.asFloat = 0.5F;
  platform.prefer(arm, "/Text", 8).value.asText = const_cast<char*>(":abc");
  platform.prefer(arm, "/Marked", 9).value.asText = const_cast<char*>(":abc");
  platform.prefer(arm, "/", 9).value.asText = const_cast<char*>("");
  platform.prefer(arm, "/Far", 10);
  platform.prefer(arm, "/Last", 255);
  platform.prefer(arm, "/Zero", 0);
  const ExportQelvoPreferences done("Arm", "arm.xml");
  EXPECT_TRUE(done.keyAdded);
  EXPECT_EQ(platform.take(), "get:ZRPreferences:0 file:arm.xml:false end");
  EXPECT_EQ(drawn(platform.written),
            "[['Key1' '' - 'Zero'] ['Key2' '' -1 'Whole'] ['Key3' '' -6 'Sixth'] "
            "['Key4' '' f:0.5 'Half'] ['Key5' '' ':abc' 'Text'] ['Key6' '' 'abc' 'Marked'] "
            "['Key7' '' '' ''] ['Key8' '' - 'Far'] ['Key9' '' - 'Last']]");
}

TEST_F(Preferences, WriteNothingWithoutAnyInUse) {
  platform.prefer(arm, "/A", 1).inUse = 0;
  platform.prefer(leg, "/A", 1);
  for (const char* container : {"Arm", "ARM", ""}) {
    EXPECT_FALSE(ExportQelvoPreferences(container, "f").keyAdded);
  }
  EXPECT_EQ(platform.take(), "");
}

TEST_F(Preferences, AddKeysOnlyToAnArray) {
  ExportQelvoPreferences unused("none", "f");
  ZR::ZRValue tree, value;
  tree = 5;
  value = 7;
  EXPECT_EQ(unused.xAddAKey("a", value, tree), 1) << "the first key resets the tree";
  tree = 5;
  EXPECT_EQ(unused.xAddAKey("b", value, tree), -1);
  EXPECT_EQ(drawn(tree), "5");
  unused.createZRValueFromPreference("none", tree);
  EXPECT_EQ(unused.xAddAKey("b", value, tree), 1);
  EXPECT_EQ(drawn(tree), "[['Key1' '' 7 'b']]");
}

}  // namespace
