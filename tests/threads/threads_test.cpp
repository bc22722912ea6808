// Command threads, the cycle, and a reader in another process. Every item of the timeline
// that all share is accounted for: written, queued still, or handed back.
// Flags: --seconds=N --seed=N --alone: no other party writes

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "host/engine/library.h"
#include "platform/hal/devicemanager.h"
#include "tests/support/failingheap.h"
#include "tests/support/temporary.h"
#include "tests/threads/machine.h"

namespace {

unsigned int seconds = 1, seed = 1;
bool alone = false;
const char* program = nullptr;

/// The clock wraps soon.
constexpr std::uint32_t startTick = 0xFFFFFF00;
constexpr int leastRounds = 100, pushers = 3;

using Shared = std::atomic<std::uint32_t>;

/// By an exchange: detectors of races that watch instructions take a plain load for no
/// atomic one.
std::uint32_t seen(Shared& shared) {
  std::uint32_t value = 0;
  shared.compare_exchange_strong(value, value);
  return value;
}

simulation::MachineDescription described() {
  simulation::MachineDescription description;
  constexpr auto least = static_cast<float>(swayed);
  description.actuators = {{"merged", 0.0F, hal::floatTypeCode},
                           {"restless", 0.0F, hal::floatTypeCode},
                           {"swayed", least, hal::floatTypeCode, least, least + 1.0F}};
  description.actuators[merged].interpolates = description.actuators[restless].interpolates = false;
  description.sensors = {{"Sensor", swayed}};
  return description;
}

void expect(bool fine, const char* what) {
  if (!fine) {
    ADD_FAILURE() << what << ", --seed=" << seed;
    std::_Exit(1);  // the other threads could go on for ever
  }
}

struct Rig {
  Rig() {
    for (const int stepper : {merged, restless}) {
      value(stepper).set(recordOf(stepper, startTick));
      value(stepper).flags |= hal::DeviceAttrGeneric::trackChangeFlag;
    }
  }

  static hal::DeviceAttrGeneric& value(int actuator) {
    return *hal::getDeviceManager()->getAttrWithIndex(
        actuator * simulation::MachineDescription::attributesPerActuator);
  }

  /// The cycle thread: as fast as it can.
  void cycle() {
    std::minstd_rand random(seed);
    std::uint32_t time = startTick;
    std::uint16_t counted = 0;
    while (seen(cyclesEnd) == 0) {
      const std::uint32_t previous = time;
      time += 1 + static_cast<std::uint32_t>(random()) % 3;
      manager.run(time, previous);
      machine.step(0.001);
      for (int i = 0; i < actuators; ++i) {
        hal::AttrGeneric present;
        __atomic_load(&value(i).value, &present, __ATOMIC_RELAXED);
        expect(isSound(i, present), "torn");
        expect(i != merged || static_cast<std::int32_t>(time - stampIn(present)) >= 0, "early");
      }
      const std::uint16_t count = value(merged).changeCount;
      written += static_cast<std::uint16_t>(count - std::exchange(counted, count));
      now.exchange(time);
      ++cycles;
    }
  }

  /// A command thread: lists for the actuators that all share. On the merged one nothing is
  /// removed, so every item is written or still there.
  void push(unsigned number) {
    std::minstd_rand random(seed * pushers + number);
    const auto pick = [&](std::uint32_t below) {
      return static_cast<std::uint32_t>(random()) % below;
    };
    for (int round = 0; round < leastRounds || seen(pushersEnd) == 0; ++round) {
      CommandList steps, targets;
      const std::uint32_t count = 1 + pick(pick(8) == 0 ? 530 : 6), time = seen(now);
      for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint32_t stamp = time + pick(40) - 10;
        steps.emplace_back(recordOf(merged, stamp), stamp);
        targets.emplace_back(
            hal::AttrGeneric(swayed - 1.0F + static_cast<float>(pick(3000)) / 1e3F), stamp,
            pick(9) == 0);
      }
      expect(manager.AddTimedCommand("merged/Value", steps, TimedCommand::MERGE), "unknown");
      expect(steps.empty() || steps.size() == count, "handed back in part");
      taken.fetch_add(steps.empty() ? count : 0);
      manager.AddTimedCommand("swayed/Value", targets,
                              static_cast<TimedCommand::commandType>(pick(6)));
    }
  }

  /// Lets the threads run, the reader beside them.
  void drive(FILE* reader) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    std::thread cycler(&Rig::cycle, this);
    std::vector<std::thread> threads;
    for (unsigned number = 0; number < pushers; ++number) {
      threads.emplace_back(&Rig::push, this, number);
    }
    EXPECT_EQ(std::fgetc(reader), '\0') << "the reader saw every value move";
    for (std::uint32_t move = 0; !alone && std::chrono::steady_clock::now() < end; ++move) {
      machine.moveFromOutside(swayed, static_cast<float>(swayed + move % 2));
      for (std::uint32_t i = 0; i < 100; ++i) {
        value(restless).set(recordOf(restless, startTick - i));
      }
    }
    std::this_thread::sleep_until(end);
    pushersEnd.exchange(1);
    for (std::thread& thread : threads) {
      thread.join();
    }
    cyclesEnd.exchange(1);
    cycler.join();
  }

  const Temporary temporary;
  simulation::Machine machine{temporary.pool(), described()};
  host::Library library;
  TimedCommandManager& manager = library.commands;
  Shared now{startTick}, taken{0}, pushersEnd{0}, cyclesEnd{0};
  /// The cycle thread's.
  std::uint32_t written = 0, cycles = 0;
};

void expectAllNodesInThePool() {
#ifndef BOOST_POOL_VALGRIND  // whose pool keeps none
  const std::size_t nodes = poolNodes;
  EXPECT_GT(nodes, 1000U);
  const CommandList all(nodes, TimedCommand::commandItem(hal::AttrGeneric(), 0));
  EXPECT_EQ(poolNodes, nodes) << "some are lost";
#endif
}

}  // namespace

TEST(Threads, LoseNothingAndTearNothing) {
  auto rig = std::make_unique<Rig>();
  FILE* const reader =
      popen(("'" + std::string(program) + "' --reader=" + rig->temporary.pool()).c_str(), "r");
  rig->drive(reader);
  EXPECT_EQ(rig->written + rig->manager.actuatorCommands[merged]->commandList.size(), rig->taken);
  std::printf("%u cycles\n", rig->cycles);
  rig.reset();
  EXPECT_EQ(pclose(reader), 0);
  expectAllNodesInThePool();
}

int main(int argc, char** argv) {
  program = argv[0];
  if (argc == 2 && std::strncmp(argv[1], "--reader=", 9) == 0) {
    return readPool(argv[1] + 9);
  }
  testing::InitGoogleTest(&argc, argv);
  for (int i = 1; i < argc; ++i) {
    const bool isAlone = std::strcmp(argv[i], "--alone") == 0;
    alone = alone || isAlone;
    if (!isAlone && std::sscanf(argv[i], "--seed=%u", &seed) != 1 &&
        std::sscanf(argv[i], "--seconds=%u", &seconds) != 1) {
      return 2;
    }
  }
  return RUN_ALL_TESTS();
}
