#include "preferences/exportqelvopreferences.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <boost/make_shared.hpp>

#include "fakeplatform.h"
#include "platform/zr/zrexception.h"
#include "registry/brokermanager.h"
#include "tests/support/drawn.h"
#include "tests/support/random.h"

namespace {

struct Preferences : testing::Test {
  Preferences() { setBrokerManager(boost::make_shared<FakeBroker>()); }
  ~Preferences() override { setBrokerManager(nullptr); }

  FakePlatform platform;
};

/// The value of a preference as the tree draws it.
std::string drawnValue(const hal::Preference& preference) {
  const int code = preference.typeCode;
  const hal::Preference::Slot& slot = preference.value;
  return code >= 1 && code <= 6 ? std::to_string(slot.asInt)
         : code == 7            ? "f" + std::to_string(bitsOf(slot.asFloat))
         : code == 8            ? "'" + std::string(slot.asText.get()) + "'"
         : code == 9            ? "'" + std::string(slot.asText.get()).erase(0, 1) + "'"
                                : "-";
}

TEST_F(Preferences, BecomeATreeOfUniqueKeys) {
  Random random(1);
  static constexpr const char* owners[] = {"Arm", "arm", "Ar", "Arms", "LArm"};
  static constexpr const char* names[] = {"/Arm", "/A", "/AA", "/a", "",   "/",  ":B", "/BArm",
                                          "/0",   "/1", "/2",  "/3", "/4", "/5", "/6", "/7"};
  static constexpr const char* texts[] = {":abc", "", "x"};
  static constexpr int codes[] = {0, 1, 2, 5, 6, 7, 8, 9, 10, 17, 24, 133, 255};
  for (int round = 0; round < 300; ++round) {
    FakePlatform tried;
    std::vector<std::pair<std::string, std::string>> expected;
    for (std::uint32_t count = random.below(60); count > 0; --count) {
      FakeContainer& owner = tried.add(owners[random.chance(50) ? 0 : random.below(5)], {});
      hal::Preference& added = tried.prefer(owner, names[random.below(16)],
                                            static_cast<std::uint8_t>(codes[random.below(13)]));
      added.inUse = static_cast<std::uint8_t>(random.below(3));
      if (added.typeCode >= 8) {
        added.value.asText = const_cast<char*>(texts[random.below(3)]);
      } else {
        added.value.asInt = 0x3FFFFFFF + static_cast<int>(random.below(1000));
      }
    }
    for (const hal::Preference& preference : tried.preferences) {
      if (preference.inUse != 0 && preference.owner->name.get() == std::string("Arm")) {
        const std::string key = std::string(preference.name.get()).erase(0, 1);
        const auto found = std::find_if(expected.begin(), expected.end(),
                                        [&](const auto& entry) { return entry.first == key; });
        (found == expected.end() ? expected.emplace_back(key, "") : *found).second =
            drawnValue(preference);
      }
    }
    std::string tree;
    int number = 0;
    for (const auto& [key, value] : expected) {
      tree += (number == 0 ? "[['Key" : " ['Key") + std::to_string(number + 1);
      tree.append("' '' ").append(value).append(" '").append(key).append("']");
      ++number;
    }
    EXPECT_EQ(ExportQelvoPreferences("Arm", "arm.xml").keyAdded, !expected.empty());
    EXPECT_EQ(tried.take(), expected.empty() ? "" : "get:ZRPreferences:0 file:arm.xml:false end");
    EXPECT_EQ(drawn(tried.written), expected.empty() ? "-" : tree + "]") << round;
  }
}

TEST_F(Preferences, AreAsManyAsTheTableHolds) {
  hal::Preference& last = platform.prefer(platform.add("Arm", {}), "/Last", 1);
  hal::Preference unused;
  platform.preferenceTable.assign(0xFFFF, &unused);
  platform.preferenceTable.back() = &last;
  platform.pool.preferences = platform.preferenceTable.data();
  platform.pool.preferenceCount = 0xFFFF;
  EXPECT_TRUE(ExportQelvoPreferences("Arm", "f").keyAdded);
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
  EXPECT_EQ(unused.xAddAKey(std::string("b\0", 2), value, tree), 1);
  EXPECT_EQ(tree.getSize(), 2) << "keys are compared whole";
  EXPECT_EQ(drawn(tree[0]), "['Key1' '' 7 'b']");
}

}  // namespace
