// Command threads in all modes, the cycle, and a reader in another process. Every item
// is accounted for: written, removed by a later list, queued still, or handed back.
// Flags: --seconds=N --seed=N --alone: no other party writes

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <random>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "host/engine/library.h"
#include "platform/hal/devicemanager.h"
#include "platform/zr/zrcriticalsectionwrite.h"
#include "tests/support/temporary.h"
#include "tests/threads/machine.h"

namespace {

unsigned int seconds = 1, seed = 1;
bool alone = false;
const char* program = nullptr;
std::atomic<std::size_t> poolNodes{0};

}  // namespace

// The source of the node pool.
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  poolNodes += size / sizeof(boost::CommandNodeLayout);
  return operator new[](size);
}

namespace {

/// The clock wraps soon. Parked items lie where it never comes, all others near it.
constexpr std::uint32_t startTick = 0xFFFFFF00, parkedOffset = 0x30000000;
constexpr int leastRounds = 100;

using Shared = std::atomic<std::uint32_t>;

/// By an exchange: detectors of races that watch instructions take a plain load for no
/// atomic one.
std::uint32_t seen(Shared& shared) {
  std::uint32_t value = 0;
  shared.compare_exchange_strong(value, value);
  return value;
}

std::string nameOf(int actuator) {
  return "a" + std::to_string(actuator);
}

simulation::MachineDescription described() {
  simulation::MachineDescription description;
  for (int i = 0; i < swayed; ++i) {
    description.actuators.emplace_back().name = nameOf(i);
    description.actuators.back().interpolates = false;
  }
  constexpr auto least = static_cast<float>(swayed);
  description.actuators.push_back({nameOf(swayed), least, hal::floatTypeCode, least, least + 1.0F});
  description.sensors = {{"Sensor", swayed}};
  return description;
}

struct Rig {
  Rig() {
    for (int i = 0; i < swayed; ++i) {
      value(i).set(recordOf(i, startTick));
      value(i).flags |= hal::DeviceAttrGeneric::trackChangeFlag;
    }
  }

  static int indexOf(int actuator) {
    return actuator * simulation::MachineDescription::attributesPerActuator;
  }
  static hal::DeviceAttrGeneric& value(int actuator) {
    return *hal::getDeviceManager()->getAttrWithIndex(indexOf(actuator));
  }
  TimedCommand& timeline(int actuator) {
    return manager.commandTable[static_cast<std::size_t>(indexOf(actuator))];
  }

  static void expect(bool fine, const char* what, int actuator) {
    if (!fine) {
      ADD_FAILURE() << what << ", actuator " << actuator << ", --seed=" << seed;
      std::_Exit(1);  // the other threads could go on for ever
    }
  }

  /// The cycle thread: as fast as it can.
  void cycle() {
    std::minstd_rand random(seed);
    std::uint32_t time = startTick;
    std::uint16_t counted[restless] = {};
    while (seen(cyclesEnd) == 0) {
      const std::uint32_t previous = time;
      time += 1 + static_cast<std::uint32_t>(random()) % 3;
      manager.run(time, previous);
      machine.step(0.001);
      for (int i = 0; i < actuators; ++i) {
        hal::AttrGeneric present;
        __atomic_load(&value(i).value, &present, __ATOMIC_RELAXED);
        expect(isSound(i, present), "torn", i);
        if (i < restless) {
          expect(static_cast<std::int32_t>(time - stampIn(present)) >= 0, "early", i);
          const std::uint16_t count = value(i).changeCount;
          written[i].fetch_add(
              static_cast<std::uint16_t>(count - std::exchange(counted[i], count)));
        }
      }
      now.exchange(time);
      cycles.fetch_add(1);
    }
  }

  const Temporary temporary;
  simulation::Machine machine{temporary.pool(), described()};
  host::Library library;
  TimedCommandManager& manager = library.commands;
  Shared now{startTick}, cycles{0}, pushersEnd{0}, cyclesEnd{0}, written[restless] = {};
};

/// A command thread. It knows all that becomes of the items for its own stepper, since
/// it waits until the cycle has written those that are due.
class Pusher {
 public:
  Pusher(Rig& rig, int number)
      : rig_(rig), stepper_(number), random_(seed * pushers + static_cast<unsigned int>(number)) {}

  void run() {
    for (int round = 0; round < leastRounds || seen(rig_.pushersEnd) == 0; ++round) {
      take();
      handOver();
      disturb();
    }
  }

  /// After the end: what the stepper's timeline holds, and what was written.
  void settle() {
    std::multiset<std::uint32_t> queued;
    for (const TimedCommand::commandItem& item : rig_.timeline(stepper_).commandList) {
      queued.insert(item.time - startTick);
      EXPECT_TRUE(isSound(stepper_, item.value));
    }
    EXPECT_EQ(queued, parked_);
    EXPECT_EQ(rig_.written[stepper_], written_);
  }

  /// Items that the shared stepper's timeline has taken.
  std::uint32_t taken = 0;

 private:
  std::uint32_t pick(std::uint32_t below) { return static_cast<std::uint32_t>(random_()) % below; }

  /// True when the timeline took the list; otherwise it must be whole.
  bool push(int actuator, CommandList& commands, TimedCommand::commandType mode) {
    const std::size_t count = commands.size();
    Rig::expect(rig_.manager.AddTimedCommand(nameOf(actuator) + "/Value", commands, mode),
                "unknown", actuator);
    Rig::expect(commands.empty() || commands.size() == count, "handed back in part", actuator);
    return commands.empty();
  }

  /// The head of the stepper's timeline, which nobody else changes now.
  void take() {
    if (!parked_.empty()) {
      const std::uint32_t stamp = startTick + *parked_.begin();
      TimedCommand& timeline = rig_.timeline(stepper_);
      Rig::expect(timeline.getNextCommand()->time == stamp, "another head", stepper_);
      Rig::expect(timeline.popNexCommand().time == stamp, "another popped", stepper_);
      parked_.erase(parked_.begin());
    }
  }

  /// One list for the stepper, of items due soon and items due never.
  void handOver() {
    const std::uint32_t now = seen(rig_.now), due = pick(8);
    const std::uint32_t count = due + pick(pick(8) == 0 ? 530 : 40);
    CommandList commands;
    std::multiset<std::uint32_t> offsets;
    for (std::uint32_t i = 0; i < count; ++i) {
      const std::uint32_t stamp = i < due ? now + 1 + 2 * i : startTick + parkedOffset + pick(60);
      commands.emplace_back(recordOf(stepper_, stamp), stamp, i == 0 && due > 0 && pick(4) == 0);
      offsets.insert(stamp - startTick);
    }
    const bool ignores = count > 0 && commands.front().ignore;
    const auto mode = static_cast<TimedCommand::commandType>(pick(6));
    trim(offsets, ignores ? TimedCommand::MERGE : mode);
    const bool fits = parked_.size() + count <= TimedCommand::MAX_TIMELINE_ITEMS;
    Rig::expect(push(stepper_, commands, mode) == fits, "capacity", stepper_);
    if (fits) {
      parked_.merge(offsets);
      parked_.erase(parked_.begin(), parked_.lower_bound(parkedOffset));
      written_ += due - (ignores ? 1 : 0);
    }
    // A cycle is a tick at least, and one may be under way.
    for (const std::uint32_t passed = seen(rig_.cycles); seen(rig_.cycles) - passed < 20;) {
      disturb();
    }
    Rig::expect(seen(rig_.written[stepper_]) == written_, "not written", stepper_);
    const TimedCommand& timeline = rig_.timeline(stepper_);
    const ZR::ZRCriticalSectionWrite section(timeline.mutex);
    Rig::expect(timeline.commandList.size() == parked_.size(), "lost or left", stepper_);
  }

  /// What the mode does to the parked items.
  void trim(const std::multiset<std::uint32_t>& offsets, TimedCommand::commandType mode) {
    if (mode == TimedCommand::REPLACE) {
      parked_.clear();
    } else if (mode == TimedCommand::CLEAR_AFTER && !offsets.empty()) {
      parked_.erase(parked_.lower_bound(*offsets.begin()), parked_.end());
    } else if (mode == TimedCommand::CLEAR_BEFORE && !offsets.empty()) {
      parked_.erase(parked_.begin(), parked_.upper_bound(*offsets.rbegin()));
    }
  }

  /// A list for each actuator that all threads share: nothing is removed from the
  /// stepper's timeline.
  void disturb() {
    const std::uint32_t count = 1 + pick(6), now = seen(rig_.now);
    CommandList steps, targets;
    for (std::uint32_t i = 0; i < count; ++i) {
      const std::uint32_t stamp = now + pick(40) - 10;
      steps.emplace_back(recordOf(merged, stamp), stamp);
      targets.emplace_back(hal::AttrGeneric(swayed - 1.0F + static_cast<float>(pick(3000)) / 1e3F),
                           stamp);
    }
    taken += push(merged, steps, TimedCommand::MERGE) ? count : 0;
    push(swayed, targets, static_cast<TimedCommand::commandType>(pick(6)));
  }

  Rig& rig_;
  const int stepper_;
  std::minstd_rand random_;
  /// What the stepper's timeline must hold when nothing is due: ticks after the start.
  std::multiset<std::uint32_t> parked_;
  std::uint32_t written_ = 0;
};

/// Lets the threads run, the reader beside them.
void drive(Rig& rig, std::vector<Pusher>& commands, FILE* reader) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  std::thread cycle(&Rig::cycle, &rig);
  std::vector<std::thread> threads;
  for (Pusher& pusher : commands) {
    threads.emplace_back(&Pusher::run, &pusher);
  }
  EXPECT_EQ(std::fgetc(reader), '\0') << "the reader saw every value move";
  for (std::uint32_t move = 0; !alone && std::chrono::steady_clock::now() < end; ++move) {
    rig.machine.moveFromOutside(swayed, static_cast<float>(swayed + move % 2));
    for (std::uint32_t i = 0; i < 100; ++i) {
      Rig::value(restless).set(recordOf(restless, startTick - i));
    }
  }
  std::this_thread::sleep_until(end);
  rig.pushersEnd.exchange(1);
  for (std::thread& thread : threads) {
    thread.join();
  }
  rig.cyclesEnd.exchange(1);
  cycle.join();
}

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
  std::vector<Pusher> commands;
  for (int i = 0; i < pushers; ++i) {
    commands.emplace_back(*rig, i);
  }
  FILE* const reader =
      popen(("'" + std::string(program) + "' --reader=" + rig->temporary.pool()).c_str(), "r");
  drive(*rig, commands, reader);
  std::uint32_t taken = 0;
  for (Pusher& pusher : commands) {
    pusher.settle();
    taken += pusher.taken;
  }
  EXPECT_EQ(rig->written[merged] + rig->timeline(merged).commandList.size(), taken);
  std::printf("%u cycles\n", rig->cycles.load());
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
