// Cycles at 1 kHz beside a command thread: ns for a cycle of all actuators.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <string>
#include <thread>

#include "bench/benchmarks.h"
#include "bench/rig.h"

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t actuators = 30;
constexpr std::size_t listLength = 500;
constexpr unsigned int ticksToFirstItem = 20;
/// Few items are reached even where no list refills the queues: each one reached leaves
/// a node that later ones are searched among.
constexpr unsigned int ticksBetweenItems = 1000;
constexpr unsigned int cycles = 2000;
constexpr std::chrono::milliseconds tick(1);

CommandList listAfter(unsigned int time) {
  return commandsAt(risingStamps(listLength, time + ticksToFirstItem, ticksBetweenItems));
}

/// Replaces the commands of one actuator after the other, until it is destroyed.
class CommandThread {
 public:
  CommandThread(Rig& rig, int listsPerSecond) : rig_(rig) {
    if (listsPerSecond > 0) {
      thread_ = std::thread(&CommandThread::drive, this,
                            std::chrono::nanoseconds(1'000'000'000 / listsPerSecond));
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
  [[nodiscard]] unsigned int sent() const { return sent_; }

 private:
  void drive(std::chrono::nanoseconds period) {
    const Clock::time_point origin = Clock::now();
    for (unsigned int list = 0; !ended_; ++list) {
      std::this_thread::sleep_until(origin + list * period);
      CommandList commands = listAfter(time_);
      rig_.timeline(list % actuators).pushTimedCommand(commands, TimedCommand::REPLACE);
      ++sent_;
    }
  }

  Rig& rig_;
  std::atomic<bool> ended_{false};
  std::atomic<unsigned int> time_{0};
  std::atomic<unsigned int> sent_{0};
  std::thread thread_;
};

std::vector<double> measureCycles(Rig& rig, CommandThread& commandThread) {
  std::vector<double> durations;
  durations.reserve(cycles);
  const Clock::time_point origin = Clock::now();
  for (unsigned int time = 1; time <= cycles; ++time) {
    std::this_thread::sleep_until(origin + time * tick);
    commandThread.setTime(time);
    const Clock::time_point began = Clock::now();
    rig.commands.run(time, time - 1);
    durations.push_back(std::chrono::duration<double, std::nano>(Clock::now() - began).count());
  }
  std::sort(durations.begin(), durations.end());
  return durations;
}

/// What at least this share of all do not exceed.
double quantile(const std::vector<double>& sorted, double share) {
  const double rank = std::ceil(share * static_cast<double>(sorted.size()));
  return sorted[static_cast<std::size_t>(rank) - 1];
}

void runBesideCommands(benchmark::State& state, int listsPerSecond, bool warmed) {
  Rig rig(actuators, Law::linear, warmed ? (actuators + 1) * listLength : 0);
  for (std::size_t i = 0; i < actuators; ++i) {
    // Not all in one cycle: lists that arrive later do not reach their items together either.
    CommandList commands = listAfter(static_cast<unsigned int>(i));
    rig.timeline(i).pushTimedCommand(commands, TimedCommand::REPLACE);
  }
  for ([[maybe_unused]] auto iteration : state) {
    CommandThread commandThread(rig, listsPerSecond);
    const std::vector<double> durations = measureCycles(rig, commandThread);
    const double median = quantile(durations, 0.5);
    state.SetIterationTime(median * 1e-9);
    state.counters[nsCounter] = median;
    state.counters["p50"] = median;
    state.counters["p99"] = quantile(durations, 0.99);
    state.counters["p99.9"] = quantile(durations, 0.999);
    state.counters["max"] = durations.back();
    state.counters["lists"] = commandThread.sent();
  }
}

}  // namespace

void addBusyBenchmarks() {
  const auto addCase = [](const std::string& name, int listsPerSecond, bool warmed) {
    add(name + std::to_string(listsPerSecond),
        [=](benchmark::State& state) { runBesideCommands(state, listsPerSecond, warmed); })
        ->UseManualTime()
        ->Iterations(1);
  };
  for (const int listsPerSecond : {0, 100, 650}) {
    addCase("beside_lists/", listsPerSecond, true);
  }
  addCase("beside_lists/not_warmed/", 650, false);
}

}  // namespace bench
