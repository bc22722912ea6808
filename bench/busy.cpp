// Cycles at 1 kHz beside a command thread: ns for a cycle of all actuators.

#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <random>
#include <string>
#include <thread>

#include "bench/benchmarks.h"
#include "bench/rig.h"

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t actuatorCount = 30;
constexpr std::size_t listLength = 500;
constexpr std::size_t shortListLength = 10;
constexpr unsigned int cycleCount = 5000;
/// None is reached, with lists or without: what reaching one costs is measured elsewhere.
constexpr unsigned int ticksToFirstItem = 2 * cycleCount;
constexpr unsigned int ticksBetweenItems = 20;
constexpr std::chrono::milliseconds tick(1);

/// As a host schedules its threads: the cycle above, each on a processor of its own. What
/// the machine refuses is left as it is.
void applyScheduling(int priority, unsigned int processor) {
  cpu_set_t only;
  CPU_ZERO(&only);
  CPU_SET(processor % std::max(1U, std::thread::hardware_concurrency()), &only);
  pthread_setaffinity_np(pthread_self(), sizeof only, &only);
  sched_param parameters{};
  parameters.sched_priority = priority;
  pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters);
}

CommandList listAfter(unsigned int time, std::size_t length) {
  return commandsAt(risingStamps(length, time + ticksToFirstItem, ticksBetweenItems));
}

/// Replaces the commands of one actuator after the other, at moments that have nothing
/// to do with the cycle's, until it is destroyed.
class CommandThread {
 public:
  CommandThread(Rig& rig, int listsPerSecond) : rig_(rig) {
    if (listsPerSecond > 0) {
      thread_ = std::thread(&CommandThread::drive, this, 2.0 / listsPerSecond);
    }
  }
  ~CommandThread() {
    ended_ = true;
    if (thread_.joinable()) {
      thread_.join();
    }
  }

  CommandThread(const CommandThread&) = delete;
  CommandThread& operator=(const CommandThread&) = delete;

  void setTime(unsigned int time) { time_ = time; }
  /// Odd while it pushes; two more with each list.
  [[nodiscard]] unsigned int progress() const { return progress_; }
  [[nodiscard]] unsigned int lists() const { return progress_ / 2; }

 private:
  void drive(double longestGapSeconds) {
    applyScheduling(79, 0);
    std::mt19937 random(1);
    std::uniform_real_distribution<double> gapSeconds(0.0, longestGapSeconds);
    Clock::time_point moment = Clock::now();
    for (unsigned int list = 0; !ended_; ++list) {
      moment += std::chrono::duration_cast<Clock::duration>(
          std::chrono::duration<double>(gapSeconds(random)));
      std::this_thread::sleep_until(moment);
      CommandList commands = listAfter(time_, listLength);
      ++progress_;
      rig_.timeline(list % actuatorCount).pushTimedCommand(commands, TimedCommand::REPLACE);
      ++progress_;
    }
  }

  Rig& rig_;
  std::atomic<bool> ended_{false};
  std::atomic<unsigned int> time_{0};
  std::atomic<unsigned int> progress_{0};
  std::thread thread_;
};

struct Cycles {
  std::vector<double> durations;
  /// How many ran while a list was pushed.
  unsigned int met = 0;
};

void runCycles(Rig& rig, CommandThread& commandThread, Cycles& measured) {
  applyScheduling(80, 1);
  const Clock::time_point origin = Clock::now();
  for (unsigned int time = 1; time <= cycleCount; ++time) {
    std::this_thread::sleep_until(origin + time * tick);
    commandThread.setTime(time);
    const unsigned int before = commandThread.progress();
    const Clock::time_point began = Clock::now();
    rig.commands.run(time, time - 1);
    const std::chrono::duration<double, std::nano> duration = Clock::now() - began;
    measured.met += before % 2 == 1 || commandThread.progress() != before ? 1 : 0;
    measured.durations.push_back(duration.count());
  }
}

Cycles measureCycles(Rig& rig, CommandThread& commandThread) {
  Cycles measured;
  measured.durations.reserve(cycleCount);
  std::thread(runCycles, std::ref(rig), std::ref(commandThread), std::ref(measured)).join();
  std::sort(measured.durations.begin(), measured.durations.end());
  return measured;
}

/// Not warmed, the queues are short at first, and the pool grows while cycles run.
void runBesideCommands(benchmark::State& state, int listsPerSecond, bool warmed) {
  Rig rig(actuatorCount, Interpolation::linear, warmed ? (actuatorCount + 1) * listLength : 0);
  for (std::size_t i = 0; i < actuatorCount; ++i) {
    CommandList commands = listAfter(0, warmed ? listLength : shortListLength);
    rig.timeline(i).pushTimedCommand(commands, TimedCommand::REPLACE);
  }
  for ([[maybe_unused]] auto iteration : state) {
    CommandThread commandThread(rig, listsPerSecond);
    const Cycles measured = measureCycles(rig, commandThread);
    const double median = quantile(measured.durations, 0.5);
    state.SetIterationTime(median * 1e-9);
    state.counters[nsCounter] = median;
    state.counters["p50"] = median;
    state.counters["p99"] = quantile(measured.durations, 0.99);
    state.counters["p99.9"] = quantile(measured.durations, 0.999);
    state.counters[maxCounter] = measured.durations.back();
    state.counters["met"] = measured.met;
    state.counters["lists"] = commandThread.lists();
  }
}

}  // namespace

void addBusyBenchmarks() {
  const auto addCase = [](const std::string& name, int listsPerSecond, bool warmed) {
    add(
        name + std::to_string(listsPerSecond),
        [=](benchmark::State& state) { runBesideCommands(state, listsPerSecond, warmed); },
        Timer::ownOnce);
  };
  for (const int listsPerSecond : {0, 100, 650}) {
    addCase("beside_lists/", listsPerSecond, true);
  }
  addCase("beside_lists/not_warmed/", 650, false);
}

}  // namespace bench
