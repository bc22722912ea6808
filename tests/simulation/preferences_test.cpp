#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "platform/zr/zrexception.h"
#include "platform/zr/zrpreferencesproxy.h"
#include "simulation/framework.h"
#include "tests/support/bits.h"
#include "tests/support/temporary.h"

namespace {

/// Texts and numbers that are hard to write, each in an array of its own.
const std::vector<std::string> texts = {
    "", "a\"b'c<d>&amp;\n\r\t e ", "Größe 力", "\xFF\xC0\x80", "\x01", "\xED\xA0\x80", " ", "]]>"};
const std::vector<float> numbers = {0.1F,
                                    -0.0F,
                                    std::numeric_limits<float>::max(),
                                    std::numeric_limits<float>::denorm_min(),
                                    -std::numeric_limits<float>::infinity(),
                                    std::nanf("0x12345")};

ZR::ZRValue hardTree() {
  ZR::ZRValue tree;
  tree.arraySetSize(4);
  tree[0] = std::numeric_limits<int>::min();
  for (const std::string& text : texts) {
    tree[1].arraySetSize(tree[1].getSize() + 1);
    tree[1][tree[1].getSize() - 1] = ZR::ZRValue(text);
  }
  for (const float number : numbers) {
    tree[2].arraySetSize(tree[2].getSize() + 1);
    tree[2][tree[2].getSize() - 1] = number;
  }
  tree[3].arraySetSize(1);
  return tree;
}

TEST(PreferenceFile, ReadsBackExactlyWhatWasWritten) {
  const Temporary temporary;
  const std::string directory = temporary.path("made/when/missing");
  const simulation::Framework framework(directory);
  ZR::ZRPreferencesProxy(framework.broker()).writePrefFile("p.xml", hardTree(), false);
  const ZR::ZRValue read = simulation::readPreferenceFile(directory + "/p.xml");
  ASSERT_EQ(read.getSize(), 4);
  EXPECT_EQ(read[0].asInt(), std::numeric_limits<int>::min());
  ASSERT_EQ(read[1].getSize(), static_cast<int>(texts.size()));
  for (int i = 0; i < read[1].getSize(); ++i) {
    EXPECT_EQ(read[1][i].asString(), texts.at(static_cast<std::size_t>(i)));
  }
  ASSERT_EQ(read[2].getSize(), static_cast<int>(numbers.size()));
  for (int i = 0; i < read[2].getSize(); ++i) {
    EXPECT_EQ(bitsOf(read[2][i].asFloat()), bitsOf(numbers.at(static_cast<std::size_t>(i))));
  }
  ASSERT_EQ(read[3].getSize(), 1);
  EXPECT_FALSE(read[3][0].isValid());
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory), {}), 1);
}

TEST(PreferenceFile, RefusesWithThePathAndLeavesTheOldOne) {
  const Temporary temporary;
  (void)temporary.write("full", "no directory");
  const std::string old = temporary.write("old.xml", "old");
  std::filesystem::create_directory(temporary.path("folder"));
  std::filesystem::create_symlink(old, temporary.path("link.xml"));
  ZR::ZRValue deep;
  for (int depth = 0; depth < 200; ++depth) {
    ZR::ZRValue outer;
    outer.arraySetSize(1);
    outer[0] = deep;
    deep = outer;
  }
  const auto complaint = [&](const std::string& directory, const std::string& name,
                             const ZR::ZRValue& tree) {
    try {
      const simulation::Framework framework(temporary.path(directory));
      ZR::ZRPreferencesProxy(framework.broker()).writePrefFile(name, tree, false);
      return std::string("written");
    } catch (const ZR::ZRException& error) {
      return std::string(error.what());
    }
  };
  for (const char* name : {"", "..", "../old.xml", "a/b", "/old.xml"}) {
    EXPECT_NE(complaint("", name, {}).find("leads out of the directory"), std::string::npos);
  }
  EXPECT_NE(complaint("full", "x", {}).find(temporary.path("full") + "/x"), std::string::npos);
  EXPECT_NE(complaint("", "folder", {}).find("not a regular file"), std::string::npos);
  EXPECT_NE(complaint("", "link.xml", {}).find("symbolic link"), std::string::npos);
  EXPECT_NE(complaint("", "old.xml", deep).find("arrays lie more than"), std::string::npos);
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

TEST(Broker, HandsOutThePreferencesServiceAlone) {
  simulation::Framework framework("unused");
  EXPECT_THROW((void)framework.broker()->getProxy("ZRNavigation", 0), ZR::ZRException);
  framework.setReachable(false);
  EXPECT_THROW((void)framework.broker()->getProxy("ZRPreferences", 0), ZR::ZRException);
  framework.setReachable(true);
  EXPECT_NE(framework.broker()->getProxy("ZRPreferences", 0), nullptr);
}

}  // namespace
