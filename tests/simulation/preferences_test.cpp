#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "platform/zr/zrexception.h"
#include "platform/zr/zrpreferencesproxy.h"
#include "simulation/framework.h"
#include "tests/support/drawn.h"
#include "tests/support/temporary.h"

namespace {

template <typename Value>
ZR::ZRValue arrayOf(const std::vector<Value>& values) {
  ZR::ZRValue array;
  array.arraySetSize(static_cast<int>(values.size()));
  for (std::size_t i = 0; i < values.size(); ++i) {
    array[static_cast<int>(i)] = values[i];
  }
  return array;
}

TEST(PreferenceFile, ReadsBackExactlyWhatWasWritten) {
  using Limits = std::numeric_limits<float>;
  std::vector<ZR::ZRValue> texts;
  for (const char* text : {"", "a\"b'c<d>&amp;\n\r\t e ", "Größe 力", "\xFF\xC0\x80", "\x01",
                           "\xED\xA0\x80", " ", "]]>"}) {
    texts.emplace_back(std::string(text));
  }
  ZR::ZRValue least, none;
  least = std::numeric_limits<int>::min();
  const ZR::ZRValue tree =
      arrayOf<ZR::ZRValue>({least, arrayOf(texts), arrayOf<ZR::ZRValue>({none}),
                            arrayOf<float>({0.1F, -0.0F, Limits::max(), Limits::denorm_min(),
                                            -Limits::infinity(), std::nanf("0x12345")})});
  const Temporary temporary;
  const std::string directory = temporary.path("made/when/missing");
  const simulation::Framework framework(directory);
  ZR::ZRPreferencesProxy(framework.broker()).writePrefFile("p.xml", tree, false);
  EXPECT_EQ(drawn(simulation::readPreferenceFile(directory + "/p.xml")), drawn(tree));
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
