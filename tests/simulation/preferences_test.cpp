#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "platform/hal/devicepool.h"
#include "platform/zr/zrexception.h"
#include "platform/zr/zrpreferencesproxy.h"
#include "simulation/framework.h"
#include "simulation/machine.h"
#include "tests/support/bits.h"
#include "tests/support/temporary.h"

namespace {

void expectEqual(const ZR::ZRValue& one, const ZR::ZRValue& other) {
  ASSERT_EQ(one.getType(), other.getType());
  ASSERT_EQ(one.getSize(), other.getSize());
  switch (one.getType()) {
    case ZR::ZRValue::intType:
      EXPECT_EQ(one.asInt(), other.asInt());
      break;
    case ZR::ZRValue::floatType:
      EXPECT_EQ(bitsOf(one.asFloat()), bitsOf(other.asFloat()));
      break;
    case ZR::ZRValue::stringType:
      EXPECT_EQ(one.asString(), other.asString());
      break;
    default:
      for (int i = 0; i < one.getSize(); ++i) {
        expectEqual(one[i], other[i]);
      }
  }
}

/// Everything that is hard to write.
ZR::ZRValue hardTree() {
  const std::string texts[] = {
      "",   "a\"b'c<d>&amp;\n\r\t e ", "Größe 力", "\xFF\xC0\x80", "\x01", "\xED\xA0\x80", " ",
      "]]>"};
  const float numbers[] = {0.1F,
                           -0.0F,
                           std::numeric_limits<float>::max(),
                           std::numeric_limits<float>::denorm_min(),
                           -std::numeric_limits<float>::infinity(),
                           std::nanf("0x12345")};
  ZR::ZRValue tree;
  tree.arraySetSize(17);
  int next = 0;
  for (const std::string& text : texts) {
    tree[next++] = ZR::ZRValue(text);
  }
  for (const float number : numbers) {
    tree[next++] = number;
  }
  tree[next++] = std::numeric_limits<int>::min();
  tree[next++].arraySetSize(2);
  return tree;
}

TEST(PreferenceFile, ReadsBackExactlyWhatWasWritten) {
  const Temporary temporary;
  const std::string directory = temporary.path("made/when/missing");
  const simulation::Framework framework(directory);
  ZR::ZRPreferencesProxy proxy(framework.broker()->getThis());
  const ZR::ZRValue tree = hardTree();
  proxy.writePrefFile("p.xml", tree, false);
  expectEqual(simulation::readPreferenceFile(directory + "/p.xml"), tree);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory), {}), 1);
}

TEST(PreferenceFile, RefusesWithThePathAndLeavesTheOldOne) {
  const Temporary temporary;
  (void)temporary.write("full", "no directory");
  const std::string old = temporary.write("old.xml", "old");
  std::filesystem::create_directory(temporary.path("folder"));
  const auto complaint = [&](const std::string& directory, const std::string& name) {
    try {
      const simulation::Framework framework(temporary.path(directory));
      ZR::ZRPreferencesProxy(framework.broker()).writePrefFile(name, hardTree(), false);
      return std::string("written");
    } catch (const ZR::ZRException& error) {
      return std::string(error.what());
    }
  };
  for (const char* name : {"", "..", "../old.xml", "a/b", "/old.xml"}) {
    EXPECT_NE(complaint("", name).find("leads out of the directory"), std::string::npos) << name;
  }
  EXPECT_NE(complaint("full", "x").find(temporary.path("full") + "/x"), std::string::npos);
  EXPECT_NE(complaint("", "folder").find("not a regular file"), std::string::npos);
  std::filesystem::create_symlink(old, temporary.path("link.xml"));
  EXPECT_NE(complaint("", "link.xml").find("symbolic link"), std::string::npos);
  EXPECT_EQ(contentsOf(old), "old");
}

TEST(PreferenceFile, RefusesToReadWhatWasNotWrittenSo) {
  const Temporary temporary;
  std::string deep;
  for (int depth = 0; depth < 50000; ++depth) {
    deep += "<array>";
  }
  for (const std::string& damage : std::vector<std::string>{
           "", "<int/>", R"(<int value="12x"/>)", R"(<int value="99999999999"/>)",
           R"(<float value="1e999"/>)", R"(<float nan="3f800000"/>)", R"(<string bytes="414"/>)",
           R"(<string bytes="zz"/>)", "<string/>", "<foo/>", "<invalid/><invalid/>",
           R"(<array>text</array>)", R"(<int value="1" more=""/>)", deep}) {
    const std::string path =
        temporary.write("p.xml", "<preferences version=\"1\">" + damage + "</preferences>");
    try {
      (void)simulation::readPreferenceFile(path);
      ADD_FAILURE() << "accepted: " << damage.substr(0, 40);
    } catch (const ZR::ZRException& error) {
      EXPECT_EQ(std::string(error.what()).rfind(path, 0), 0U) << error.what();
    }
  }
}

TEST(PreferenceFile, RefusesAnArrayWithinTooManyOthers) {
  const Temporary temporary;
  const simulation::Framework framework(temporary.path(""));
  ZR::ZRValue tree;
  ZR::ZRValue* inner = &tree;
  for (int depth = 0; depth < 200; ++depth) {
    inner->arraySetSize(1);
    inner = &(*inner)[0];
  }
  ZR::ZRPreferencesProxy proxy(framework.broker());
  EXPECT_THROW(proxy.writePrefFile("p.xml", tree, false), ZR::ZRException);
  EXPECT_FALSE(temporary.holds("p.xml"));
}

TEST(Broker, HandsOutThePreferencesServiceAlone) {
  simulation::Framework framework("unused");
  EXPECT_THROW((void)framework.broker()->getProxy("ZRNavigation", 0), ZR::ZRException);
  framework.setReachable(false);
  EXPECT_THROW((void)framework.broker()->getProxy("ZRPreferences", 0), ZR::ZRException);
  framework.setReachable(true);
  EXPECT_NE(framework.broker()->getProxy("ZRPreferences", 0), nullptr);
}

TEST(Machine, KeepsPreferencesInItsPool) {
  const Temporary temporary;
  simulation::MachineDescription description;
  description.containers = {{"Board", hal::deviceKind, {}}};
  description.actuators.emplace_back().name = "Arm";
  description.preferences = {{"Board", ":Limit", 7, 0.5F, true},
                             {"Arm", ":Note", 9, std::string(":text"), true},
                             {"Arm", ":Gone", 3, 7, false}};
  const simulation::Machine machine(temporary.pool(), description);
  const hal::DevicePool& pool = *hal::getDevicePool();
  ASSERT_EQ(pool.preferenceCount, 3);
  EXPECT_STREQ(pool.preferences[0]->owner->name.get(), "Board");
  EXPECT_EQ(pool.preferences[0]->value.asFloat, 0.5F);
  EXPECT_STREQ(pool.preferences[1]->name.get(), ":Note");
  EXPECT_STREQ(pool.preferences[1]->value.asText.get(), ":text");
  EXPECT_EQ(pool.preferences[2]->inUse, 0);
}

}  // namespace
