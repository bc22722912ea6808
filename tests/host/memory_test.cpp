// A run whose memory gives out at each allocation in turn, every time in a process of its
// own: it must end with an error that is said, and leave whole files or none.
// Flags: --every: do not pass over any allocation

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "host/commandline.h"
#include "tests/support/temporary.h"

namespace {

bool every = false;

/// So many allocations later one fails, with `allFollow` all from then on; none does while it is 0.
std::atomic<long> allocationsToFailure{0};
std::atomic<bool> allFollow{false};
std::atomic<bool> failed{false};

[[gnu::noinline]] void* take(std::size_t size) noexcept {
  if (allocationsToFailure > 0 && --allocationsToFailure == 0) {
    failed = true;
    allocationsToFailure = allFollow ? 1 : 0;
    return nullptr;
  }
  return std::malloc(size);
}

}  // namespace

void* operator new(std::size_t size) {
  void* const block = take(size);
  return block == nullptr ? throw std::bad_alloc() : block;
}

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return take(size);
}

void operator delete(void* block) noexcept {
  std::free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
  std::free(block);
}

// The array form of new that throws is not used.
// NOLINTNEXTLINE(misc-new-delete-overloads)
void operator delete[](void* block) noexcept {
  std::free(block);
}

void operator delete[](void* block, std::size_t /*size*/) noexcept {
  std::free(block);
}

namespace {

constexpr char machine[] = R"(
devices:
- name: MainBoard
  attributes:
  - {name: Version, type: 5, value: 42}
  - {name: Label, type: 8, value: a text that is longer than short texts are}
actuators:
- {name: arm, minimum: -2, maximum: 2}
- {name: chest_light, type: 1, minimum: 0, maximum: 255}
sensors:
- {name: arm/Sensor, actuator: arm, time_constant: 0.01}
preferences:
- {owner: MainBoard, name: /MainBoard/Name, type: 8, value: a text that is long}
)";

constexpr char motion[] = R"(
lists:
- at: 0.05
  mode: replace
  key: chest_light/Value
  items: [{time: 0.1, value: 10}, {time: 0.2, value: 0}]
- at: 0
  mode: merge
  trajectory:
    joint_names: [arm]
    points:
    - {positions: [0.0], time_from_start: {sec: 0, nanosec: 0}}
    - {positions: [0.3], time_from_start: {sec: 0, nanosec: 300000000}}
)";

/// What one run left behind, and how it ended.
struct Ended {
  int status;
  bool hadFailure;
  std::string said, trace, preferences;
};

struct ToolRun {
  Temporary temporary;
  std::string machinePath = temporary.write("machine.yaml", machine);
  std::string motionPath = temporary.write("motion.yaml", motion);
  std::string out = temporary.path("out"), trace = temporary.path("t.csv"),
              folder = temporary.path("preferences"), pool = temporary.pool();

  /// With a failure of allocation n, and of all after it or not; with none when n is 0.
  [[nodiscard]] Ended operator()(long n, bool all) const {
    std::filesystem::remove_all(folder);
    std::filesystem::remove(trace);
    const pid_t process = fork();
    if (process == 0) {
      alarm(60);
      const int output = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      dup2(output, STDOUT_FILENO);
      dup2(output, STDERR_FILENO);
      const char* arguments[] = {"torvex",           "run",         machinePath.c_str(),
                                 motionPath.c_str(), "--clock",     "simulated",
                                 "--trace",          trace.c_str(), "--pool",
                                 pool.c_str(),       "--export",    "MainBoard=b.xml",
                                 "--directory",      folder.c_str()};
      allFollow = all;
      allocationsToFailure = n;
      const int status = [&]() noexcept {
        return host::runCommandLine(static_cast<int>(std::size(arguments)),
                                    const_cast<char**>(arguments));
      }();
      _exit(failed ? hadFailure + status : status);
    }
    int status = 0;
    waitpid(process, &status, 0);
    const int exited = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return {exited % hadFailure, exited >= hadFailure, contentsOf(out), contentsOf(trace),
            contentsOf(folder + "/b.xml")};
  }

  static constexpr int hadFailure = 100;
};

void expectOrder(const ToolRun& run, const Ended& ended, const Ended& whole) {
  EXPECT_TRUE(ended.status >= 0 && ended.status <= 2) << ended.said;
  EXPECT_TRUE(ended.status == 0 || ended.said.find("torvex: error: ") != std::string::npos)
      << ended.said;
  EXPECT_TRUE(ended.trace == whole.trace || (ended.trace.empty() && ended.status != 0));
  EXPECT_TRUE(ended.preferences == whole.preferences ||
              (ended.preferences.empty() && ended.status != 0));
  EXPECT_FALSE(run.temporary.poolExists());
  EXPECT_FALSE(run.temporary.holds("t.csv.torvex-part"));
  EXPECT_FALSE(run.temporary.holds("preferences/b.xml.torvex-part"));
}

void expectOrderEverywhere(const ToolRun& run, bool all) {
  const Ended whole = run(0, false);
  ASSERT_EQ(whole.status, 0) << whole.said;
  ASSERT_NE(whole.trace + whole.preferences, whole.trace);
  long n = 1;
  int places = 0;
  for (Ended ended = run(n, all); !testing::Test::HasFailure(); ended = run(n, all)) {
    SCOPED_TRACE("allocation " + std::to_string(n) + (all ? " and all after it" : ""));
    expectOrder(run, ended, whole);
    if (!ended.hadFailure) {
      break;
    }
    ++places;
    n += every ? 1 : 1 + n / 30;
  }
  EXPECT_GT(n, 1000);
  std::printf("%d places\n", places);
}

}  // namespace

TEST(Memory, MayFailOnce) {
  expectOrderEverywhere(ToolRun(), false);
}

TEST(Memory, MayGiveOut) {
  expectOrderEverywhere(ToolRun(), true);
}

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  every = argc == 2 && std::strcmp(argv[1], "--every") == 0;
  return argc > 2 || (argc == 2 && !every) ? 2 : RUN_ALL_TESTS();
}
