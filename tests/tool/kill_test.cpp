// Kills the tool at random moments. TORVEX_KILLS: how often; TORVEX_SEED.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <thread>

#include "tests/support/temporary.h"
#include "tool.h"

namespace {

using std::chrono::microseconds;

/// A run that leaves three files behind, and an export of one of them.
struct Bench {
  Temporary temporary;
  std::vector<std::string> files = {"t.csv", "p.svg", "p.xml"};
  std::vector<std::string> run, exported;
  std::vector<std::string> fresh;
  microseconds duration{0};

  Bench() {
    std::string text = "actuators: [{name: a}]\npreferences:\n";
    for (int i = 0; i < 300; ++i) {
      text += "- {owner: a, name: /" + std::to_string(i) + ", type: 8, value: x}\n";
    }
    const std::string machine = temporary.write("m.yaml", text);
    const std::string motion =
        temporary.write("w.yaml",
                        "joint_names: [a]\npoints:\n- {positions: [0], time_from_start: 0}\n"
                        "- {positions: [7], time_from_start: 30}\n");
    const std::string folder = temporary.path("");
    run = {"run",
           machine,
           motion,
           "--clock",
           "simulated",
           "--cycle",
           "1ms",
           "--pool",
           temporary.pool(),
           "--trace",
           temporary.path("t.csv"),
           "--plot",
           temporary.path("p.svg"),
           "--export",
           "a=p.xml",
           "--directory",
           folder};
    exported = {"export", machine, "a", "p.xml", "--directory", folder};
    const auto begin = std::chrono::steady_clock::now();
    complete();
    duration = std::chrono::duration_cast<microseconds>(std::chrono::steady_clock::now() - begin);
    for (const std::string& file : files) {
      fresh.push_back(contentsOf(temporary.path(file)));
      (void)temporary.write(file, "old");
    }
  }

  void complete() const {
    Tool tool(run);
    EXPECT_EQ(tool.wait(), 0) << tool.said();
  }

  /// How many of the files are new ones; the others must be the old ones.
  [[nodiscard]] std::size_t countFresh() const {
    std::size_t count = 0;
    for (std::size_t i = 0; i < files.size(); ++i) {
      const std::string contents = contentsOf(temporary.path(files[i]));
      EXPECT_TRUE(contents == "old" || contents == fresh[i])
          << files[i] << " is half: " << contents.size() << " bytes of " << fresh[i].size();
      count += contents == fresh[i] ? 1 : 0;
    }
    return count;
  }

  /// The next run replaces what was left behind, and leaves nothing itself.
  void expectRecovery() const {
    complete();
    EXPECT_EQ(countFresh(), files.size());
    EXPECT_FALSE(temporary.poolExists());
    for (const auto& entry : std::filesystem::directory_iterator(temporary.path(""))) {
      EXPECT_NE(entry.path().extension(), ".torvex-part");
    }
  }
};

unsigned int numberIn(const char* variable, unsigned int otherwise) {
  const char* const text = std::getenv(variable);
  return text == nullptr ? otherwise : static_cast<unsigned int>(std::strtoul(text, nullptr, 10));
}

TEST(KilledTool, LeavesOldFilesOrNewOnesAndTheNextRunWorks) {
  const Bench bench;
  const unsigned int kills = numberIn("TORVEX_KILLS", 8);
  const unsigned int seed = numberIn("TORVEX_SEED", 1);
  std::mt19937 random(seed);
  std::size_t parts = 0, pools = 0, fresh = 0, recoveries = 0;
  for (unsigned int kill = 0; kill < kills && !testing::Test::HasFailure(); ++kill) {
    SCOPED_TRACE("TORVEX_SEED=" + std::to_string(seed) + ", kill " + std::to_string(kill));
    const bool isRun = random() % 4 != 0;
    const auto most = static_cast<unsigned int>(bench.duration.count()) / (isRun ? 1 : 8);
    {
      Tool tool(isRun ? bench.run : bench.exported);
      std::this_thread::sleep_for(microseconds(random() % most));
      tool.killNow();
    }
    fresh += bench.countFresh();
    pools += bench.temporary.poolExists() ? 1 : 0;
    parts += static_cast<std::size_t>(std::count_if(
        bench.files.begin(), bench.files.end(),
        [&](const std::string& file) { return bench.temporary.holds(file + ".torvex-part"); }));
    if (random() % 2 == 0) {
      bench.expectRecovery();
      ++recoveries;
    }
    for (const std::string& file : bench.files) {
      (void)bench.temporary.write(file, "old");
    }
  }
  bench.expectRecovery();
  std::printf(
      "kills: %u, left behind: %zu parts of files and %zu pools; %zu files were new, all "
      "others old; %zu runs after a kill\n",
      kills, parts, pools, fresh, recoveries + 1);
}

}  // namespace
