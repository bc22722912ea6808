#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "host/base/outputfile.h"
#include "host/base/usererror.h"
#include "host/base/values.h"
#include "host/cli/liveview.h"
#include "host/engine/histogram.h"
#include "host/engine/trace.h"
#include "host/results/report.h"
#include "tests/support/bits.h"
#include "tests/support/namelessfiles.h"
#include "tests/support/temporary.h"

namespace {

// Once with parts that have no name, and once as on a file system that knows none.
TEST(OutputFile, AppearsWholeOrNotAtAll) {
  for (const bool named : {false, true}) {
    refuseFilesWithoutName = named;
    const Temporary temporary;
    const std::string name(NAME_MAX, 'o');
    const std::string path = temporary.write(name, "old");
    const auto entries = [&] {
      return std::distance(std::filesystem::directory_iterator(temporary.path("")), {});
    };
    {
      host::OutputFile dropped(path);
      dropped.write("half", 4);
      EXPECT_EQ(entries(), named ? 2 : 1);
    }
    EXPECT_EQ(contentsOf(path), "old");
    const std::string part = ".torvex-part-0123456789abcdef";
    (void)temporary.write(name.substr(part.size()) + part, "what a killed process left");
    (void)temporary.write("out.torvex-part", "the user's own");
    chmod(path.c_str(), 04606);
    host::OutputFile file(path);
    file.write("new", 3);
    EXPECT_EQ(contentsOf(path), "old");
    host::OutputFile other(path);  // takes no part of another for one left behind
    file.commit();
    EXPECT_EQ(contentsOf(path), "new");
    other.commit();
    EXPECT_EQ(contentsOf(path), "");
    EXPECT_EQ(entries(), 2);
    struct stat made {};
    stat(path.c_str(), &made);
    EXPECT_EQ(made.st_mode & 07777U, 0604U) << "of what the old one had, what the umask leaves";
    refuseFilesWithoutName = false;
  }
}

TEST(OutputFile, FollowsOnlyWhatNobodyElseCanHaveLaid) {
  const Temporary temporary;
  const std::string target = temporary.write("target", "old");
  std::filesystem::create_directory(temporary.path("shared"));
  for (const char* link : {"link", "shared/link"}) {
    std::filesystem::create_symlink(target, temporary.path(link));
  }
  const auto write = [&](const std::string& name) {
    host::OutputFile file(temporary.path(name));
    file.write(name.data(), name.size());
    file.commit();
  };
  write("shared/../link");
  EXPECT_EQ(contentsOf(target), "shared/../link");
  EXPECT_TRUE(std::filesystem::is_symlink(temporary.path("link")));
  chmod(temporary.path("shared").c_str(), 01777);
  mkfifo(temporary.path("pipe").c_str(), 0600);
  const int reader = open(temporary.path("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  write("pipe");
  char block[8] = {};
  EXPECT_EQ(read(reader, block, sizeof block), 4);
  close(reader);
  for (const char* refused : {"shared/link", "none/out", "", "out.torvex-part-0123456789abcdef"}) {
    EXPECT_THROW(write(refused), host::UserError) << refused;
  }
  EXPECT_EQ(contentsOf(target), "shared/../link");
}

TEST(Trace, WritesFloatsThatReadBackExactly) {
  const Temporary temporary;
  const float values[] = {0.1F, -0.0F, 1.17549435e-38F, 3.4028235e38F, 16777217.0F};
  {
    host::Trace trace(temporary.path("t.csv"), {"=a", "-a\n", "b,\"c\"", "d"});
    for (const float value : values) {
      trace.rows().pushWaiting({1e10, -40.0, value, 1.0, -value, 2.0});
    }
    trace.finish();
  }
  std::istringstream text(contentsOf(temporary.path("t.csv")));
  std::string line;
  std::getline(text, line);
  EXPECT_EQ(line, R"(time_ms,motion_ms,'=a,'-a\u000a,"b,""c""",d)");
  for (const float value : values) {
    std::getline(text, line);
    EXPECT_EQ(line.substr(0, 16), "10000000000,-40,");
    const float read = std::strtof(line.c_str() + 16, nullptr);
    EXPECT_EQ(bitsOf(read), bitsOf(value)) << line;
  }
  EXPECT_FALSE(std::getline(text, line));
}

/// Any axis, with what its registers hold.
struct AnyAxis {
  explicit AnyAxis(const std::string& name, float command = 0.0F, float measured = 0.0F) {
    machine.description.actuators[0].name = name;
    for (hal::DeviceAttrGeneric& attribute : registers) {
      attribute.typeCode = hal::floatTypeCode;
    }
    registers[0].storeFloat(command);
    registers[1].storeFloat(measured);
  }

  host::MachineModel machine{{}, {}, {{}, {simulation::Actuator()}, {}, {}}, {}, {}, {}, {},
                             {}, {}};
  hal::DeviceAttrGeneric registers[2];
  TimedCommand timeline;
  host::Axis axis{0, machine, 10, timeline, registers[0], &registers[1]};
};

TEST(Report, FitsEightyColumnsWhateverHappened) {
  const host::RunResult result({}, {1, 1});
  const char* const names[] = {"cleared", "refused", "left", "late", "limited", "others"};
  for (const std::uint64_t most : {1U, 999U, 20'000'000U}) {
    for (unsigned int happened = 0; happened < 64; ++happened) {
      host::AxisResult axis;
      axis.actuator.name = std::string(30, 'n');
      axis.command.asFloat = -1e30F;
      axis.measured = -1e30F;
      const auto count = [&](unsigned int bit) { return (happened >> bit & 1U) * most; };
      const std::uint64_t points = count(0) + count(1) + count(2);
      axis.counts = {points, 0, count(0), count(1), count(3), count(4)};
      axis.externalWrites = count(5);
      host::Outcome outcome;
      outcome.axes.push_back({axis, hal::AttrGeneric(-1e30F), host::Verdict::missed});
      std::istringstream report(host::runReport(result, outcome));
      std::string words = " ";
      for (std::string line; std::getline(report, line); words += line + " ") {
        EXPECT_LE(host::columnsOf(line), 80U) << line;
      }
      for (unsigned int bit = 0; bit < 6; ++bit) {
        const bool isNamed = words.find(" " + std::string(names[bit]) + " ") != std::string::npos;
        EXPECT_EQ(isNamed, (happened >> bit & 1U) == 1U) << names[bit] << words;
      }
      EXPECT_TRUE(most > 1 || words.find(axis.actuator.name) != std::string::npos);
    }
  }
}

TEST(LiveView, DrawsWhatIsNoNumber) {
  constexpr float infinity = std::numeric_limits<float>::infinity();
  constexpr float none = std::numeric_limits<float>::quiet_NaN();
  AnyAxis high("high", infinity, -infinity), neither("none", none, none),
      huge("huge", 3e38F, -3e38F);
  huge.machine.description.actuators[0].minimum = -1e308;
  huge.machine.description.actuators[0].maximum = 1e308;
  const std::vector<host::ShownAxis> shown = {
      {high.axis, 0, {}}, {neither.axis, 0, {}}, {huge.axis, 0, {}}};
  int terminal = -1;
  int end = -1;
  ASSERT_EQ(openpty(&terminal, &end, nullptr, nullptr, nullptr), 0);
  const int before = dup(STDERR_FILENO);
  dup2(end, STDERR_FILENO);
  {
    host::LiveView view;
    view.show(shown, 10, 20);
  }
  dup2(before, STDERR_FILENO);
  char drawn[4096];
  const ssize_t length = read(terminal, drawn, sizeof drawn);
  for (const int descriptor : {terminal, end, before}) {
    close(descriptor);
  }
  ASSERT_GT(length, 0);
  const std::string text(drawn, static_cast<std::size_t>(length));
  for (const char* const bar :
       {"high                      [o.......................................#]       inf",
        "none                      [....................#....................]       nan",
        "huge                      [....................#....................]  3.00e+38"}) {
    EXPECT_NE(text.find(bar), std::string::npos) << bar << " in\n" << text;
  }
}

TEST(Histogram, QuantilesLieWithinABucketOfTheTruth) {
  std::mt19937_64 random(7);
  std::vector<std::uint64_t> values;
  host::Histogram histogram;
  for (int i = 0; i < 5000; ++i) {
    values.push_back(random() >> (random() % 64));
    histogram.add(values.back());
  }
  std::sort(values.begin(), values.end());
  EXPECT_EQ(histogram.minimum(), values.front());
  EXPECT_EQ(histogram.maximum(), values.back());
  for (const double share : {0.001, 0.25, 0.5, 0.99, 1.0}) {
    const auto rank = static_cast<std::size_t>(share * 5000) - 1;
    const std::uint64_t found = histogram.quantile(share);
    EXPECT_GE(found, values[rank]);
    EXPECT_LE(found - values[rank], values[rank] / 32);
  }
}

}  // namespace
