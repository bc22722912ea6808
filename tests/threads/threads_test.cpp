// Command threads in all modes, the cycle, and a reader in another process. Every item
// is accounted for: written, removed by a later list, queued still, or handed back.
// Flags: --seconds=N --seed=N

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

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

#include "attrfullname/attrfullname.h"
#include "platform/hal/devicemanager.h"
#include "platform/zr/zrcriticalsectionwrite.h"
#include "registry/attrfullnamemanager.h"
#include "tests/support/bits.h"
#include "tests/support/temporary.h"
#include "tests/threads/machine.h"
#include "timedcommandmanager/timedcommandmanager.h"

namespace {

unsigned int seconds = 1, seed = 1;
const char* program = nullptr;
std::atomic<std::size_t> poolNodes{0};

}  // namespace

// The source of the node pool.
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  poolNodes += size / sizeof(boost::CommandNodeLayout);
  return std::malloc(size);
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

using Mode = TimedCommand::commandType;

/// The clock wraps soon. Parked items lie where it never comes, all others near it.
constexpr std::uint32_t startTick = 0xFFFFFF00, parkedOffset = 0x30000000;
constexpr int leastRounds = 100;

/// A number that threads share. It is even read by an exchange: detectors of races that
/// watch instructions take a plain load for no atomic one.
class Shared {
 public:
  std::uint32_t get() {
    std::uint32_t seen = 0;
    value_.compare_exchange_strong(seen, seen);
    return seen;
  }
  void set(std::uint32_t value) { value_.exchange(value); }
  void add(std::uint32_t count) { value_.fetch_add(count); }

 private:
  std::atomic<std::uint32_t> value_{0};
};

simulation::MachineDescription described() {
  simulation::MachineDescription description;
  for (int i = 0; i < actuators; ++i) {
    simulation::Actuator actuator;
    actuator.name = "a" + std::to_string(i);
    actuator.interpolates = !isStepper(i);
    if (actuator.interpolates) {
      actuator.value = actuator.minimum = static_cast<float>(i);
      actuator.maximum = actuator.minimum + 1.0F;
      simulation::Sensor sensor;
      sensor.name = actuator.name + "/Sensor";
      sensor.actuator = i;
      description.sensors.push_back(sensor);
    }
    description.actuators.push_back(actuator);
  }
  return description;
}

struct Rig {
  Rig() {
    for (int i = 0; i < steppers; ++i) {
      hal::DeviceAttrGeneric& attribute = value(i);
      attribute.set(recordOf(i, startTick));
      attribute.flags |= hal::DeviceAttrGeneric::trackChangeFlag;
    }
    names.initNameList(0);
    setAttrFullNameManager(&names);
    manager.initTimedCommand(0);
    now.set(startTick);
  }
  ~Rig() { setAttrFullNameManager(nullptr); }

  static int indexOf(int actuator) {
    return actuator * simulation::MachineDescription::attributesPerActuator;
  }
  static hal::DeviceAttrGeneric& value(int actuator) {
    return *hal::getDeviceManager()->getAttrWithIndex(indexOf(actuator));
  }
  TimedCommand& timeline(int actuator) {
    return manager.commandTable[static_cast<std::size_t>(indexOf(actuator))];
  }

  void expect(bool fine, const char* what, int actuator) {
    if (!fine) {
      ADD_FAILURE() << what << ", actuator " << actuator << ", --seed=" << seed;
      std::_Exit(1);  // the other threads could go on for ever
    }
  }

  /// The cycle thread: as fast as it can.
  void cycle() {
    std::minstd_rand random(seed);
    std::uint32_t time = startTick;
    std::uint16_t counted[steppers] = {};
    while (cyclesEnd.get() == 0) {
      const std::uint32_t previous = time;
      time += 1 + static_cast<std::uint32_t>(random()) % 3;
      manager.run(time, previous);
      machine.step(0.001);
      for (int i = 0; i < actuators; ++i) {
        hal::AttrGeneric present;
        __atomic_load(&value(i).value, &present, __ATOMIC_RELAXED);
        expect(isSound(i, present), "torn", i);
        if (isStepper(i)) {
          expect(static_cast<std::int32_t>(time - stampIn(present)) >= 0, "early", i);
          const std::uint16_t count = value(i).changeCount;
          written[i].add(static_cast<std::uint16_t>(count - std::exchange(counted[i], count)));
        }
      }
      now.set(time);
      cycles.add(1);
    }
  }

  const Temporary temporary;
  simulation::Machine machine{temporary.pool(), described()};
  AttrFullName names;
  TimedCommandManager manager;
  Shared now, cycles, pushersEnd, cyclesEnd, written[steppers];
};

/// A command thread. It knows all that becomes of the items for its own actuators,
/// since it waits until the cycle has written those that are due.
class Pusher {
 public:
  Pusher(Rig& rig, int number)
      : rig_(rig),
        stepper_(number),
        line_(steppers + number),
        random_(seed * pushers + static_cast<unsigned int>(number)) {}

  void run() {
    for (int round = 0; round < leastRounds || rig_.pushersEnd.get() == 0; ++round) {
      step();
      move();
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
    EXPECT_EQ(rig_.written[stepper_].get(), written_);
  }

  /// Items that the shared timelines have taken.
  std::uint32_t taken[actuators] = {};

 private:
  std::uint32_t pick(std::uint32_t below) { return static_cast<std::uint32_t>(random_()) % below; }
  Mode mode() { return static_cast<Mode>(pick(6)); }

  /// True when the timeline took the list; otherwise it must be whole.
  bool push(int actuator, CommandList& commands, Mode mode) {
    const std::size_t count = commands.size();
    if (pick(2) == 0) {
      rig_.manager.AddTimedCommandWithIndex(Rig::indexOf(actuator), commands, mode);
    } else {
      const std::string name = "a" + std::to_string(actuator) + "/Value";
      rig_.expect(rig_.manager.AddTimedCommand(name, commands, mode), "unknown", actuator);
    }
    rig_.expect(commands.empty() || commands.size() == count, "handed back in part", actuator);
    return commands.empty();
  }

  /// One list for the stepper, due soon or never.
  void step() {
    look();
    const bool isParked = pick(2) == 0;
    const auto room = static_cast<std::uint32_t>(TimedCommand::MAX_TIMELINE_ITEMS - parked_.size());
    const std::uint32_t count = !isParked      ? 1 + pick(8)
                                : pick(4) == 0 ? room + pick(2)
                                               : pick(pick(4) == 0 ? 530 : 40);
    const std::uint32_t now = rig_.now.get();
    CommandList commands;
    std::multiset<std::uint32_t> offsets;
    for (std::uint32_t i = 0; i < count; ++i) {
      const std::uint32_t stamp =
          isParked ? startTick + parkedOffset + pick(2000) : now + 1 + 2 * i;
      commands.emplace_back(recordOf(stepper_, stamp), stamp);
      offsets.insert(stamp - startTick);
    }
    const bool ignore = !isParked && pick(4) == 0;
    if (ignore) {
      commands.front().ignore = true;
    }
    const Mode wanted = mode();
    trim(offsets, ignore && !parked_.empty() ? TimedCommand::MERGE : wanted);
    const bool fits = parked_.size() + count <= TimedCommand::MAX_TIMELINE_ITEMS;
    rig_.expect(push(stepper_, commands, wanted) == fits, "capacity", stepper_);
    if (fits && isParked) {
      parked_.merge(offsets);
    } else if (fits) {
      written_ += count - (ignore ? 1 : 0);
      await(now + 2 * count);
      rig_.expect(rig_.written[stepper_].get() == written_, "not written", stepper_);
    }
  }

  void trim(const std::multiset<std::uint32_t>& offsets, Mode mode) {
    if (mode == TimedCommand::REPLACE) {
      parked_.clear();
    } else if (mode == TimedCommand::CLEAR_AFTER && !offsets.empty()) {
      parked_.erase(parked_.lower_bound(*offsets.begin()), parked_.end());
    } else if (mode == TimedCommand::CLEAR_BEFORE && !offsets.empty()) {
      parked_.erase(parked_.begin(), parked_.upper_bound(*offsets.rbegin()));
    }
  }

  /// At the head of the stepper's timeline, which nobody else changes now.
  void look() {
    if (parked_.empty()) {
      return;
    }
    const std::uint32_t stamp = startTick + *parked_.begin();
    TimedCommand& timeline = rig_.timeline(stepper_);
    if (pick(2) == 0) {
      rig_.expect(timeline.getNextCommand()->time == stamp, "another head", stepper_);
      return;
    }
    const TimedCommand::commandItem item = timeline.popNexCommand();
    rig_.expect(item.time == stamp && isSound(stepper_, item.value), "popped", stepper_);
    parked_.erase(parked_.begin());
  }

  /// Two lists for the line; its end is the end of the second, in whatever modes.
  void move() {
    const std::uint32_t now = rig_.now.get();
    float target = 0.0F;
    for (const std::uint32_t first : {5U, 25U}) {
      CommandList commands;
      for (std::uint32_t i = 0; i < 10; ++i) {
        target = static_cast<float>(line_) + static_cast<float>(pick(1025)) / 1024.0F;
        commands.emplace_back(hal::AttrGeneric(target), now + first + 2 * i);
      }
      rig_.expect(push(line_, commands, mode()), "refused", line_);
    }
    await(now + 25 + 2 * 9);
    const TimedCommand& timeline = rig_.timeline(line_);
    const ZR::ZRCriticalSectionWrite section(timeline.mutex);
    rig_.expect(timeline.commandList.empty(), "not reached", line_);
    rig_.expect(bitsOf(Rig::value(line_).loadFloat()) == bitsOf(target), "elsewhere", line_);
  }

  /// Until whole cycles have passed after the stamp; disturbs others meanwhile.
  void await(std::uint32_t stamp) {
    while (static_cast<std::int32_t>(rig_.now.get() - stamp) < 0) {
      disturb();
    }
    const std::uint32_t passed = rig_.cycles.get();
    while (rig_.cycles.get() - passed < 3) {
      disturb();
    }
  }

  /// A list for an actuator that all threads share.
  void disturb() {
    const int choices[] = {merged, mixed, swayed};
    const int actuator = choices[pick(3)];
    const std::uint32_t count = 1 + pick(6), now = rig_.now.get();
    CommandList commands;
    for (std::uint32_t i = 0; i < count; ++i) {
      const std::uint32_t stamp = now + pick(40) - 10;
      const float beyond =
          static_cast<float>(actuator) - 1.0F + static_cast<float>(pick(3000)) / 1e3F;
      commands.emplace_back(
          isStepper(actuator) ? recordOf(actuator, stamp) : hal::AttrGeneric(beyond), stamp);
    }
    taken[actuator] +=
        push(actuator, commands, actuator == merged ? TimedCommand::MERGE : mode()) ? count : 0;
  }

  Rig& rig_;
  const int stepper_, line_;
  std::minstd_rand random_;
  /// What the stepper's timeline must hold when nothing is due: ticks after the start.
  std::multiset<std::uint32_t> parked_;
  std::uint32_t written_ = 0;
};

/// The reader, in a process of its own. It ends with the machine.
class Reader {
 public:
  explicit Reader(const std::string& pool) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    process_ = fork();
    if (process_ == 0) {
      dup2(ends[1], STDOUT_FILENO);
      execl(program, program, ("--reader=" + pool).c_str(), nullptr);
      _exit(127);
    }
    close(ends[1]);
    output_ = ends[0];
  }
  void awaitFirstMoves() const {
    char byte = 0;
    EXPECT_EQ(read(output_, &byte, 1), 1);
  }
  [[nodiscard]] int status() const {
    close(output_);
    int status = 0;
    waitpid(process_, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t process_;
  int output_;
};

void settleShared(Rig& rig, const std::vector<Pusher>& threads) {
  for (const int actuator : {merged, mixed}) {
    std::uint32_t taken = 0;
    for (const Pusher& thread : threads) {
      taken += thread.taken[actuator];
    }
    const auto queued = static_cast<std::uint32_t>(rig.timeline(actuator).commandList.size());
    const std::uint32_t removed = taken - rig.written[actuator].get() - queued;
    if (actuator == merged) {
      EXPECT_EQ(removed, 0U);
    } else {
      EXPECT_LE(removed, taken);
    }
  }
}

void drive(Rig& rig, const Reader& reader) {
  std::vector<Pusher> commands;
  for (int i = 0; i < pushers; ++i) {
    commands.emplace_back(rig, i);
  }
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  std::thread cycle(&Rig::cycle, &rig);
  std::vector<std::thread> threads;
  for (Pusher& pusher : commands) {
    threads.emplace_back(&Pusher::run, &pusher);
  }
  reader.awaitFirstMoves();
  std::this_thread::sleep_until(end);
  rig.pushersEnd.set(1);
  for (std::thread& thread : threads) {
    thread.join();
  }
  rig.cyclesEnd.set(1);
  cycle.join();
  for (Pusher& pusher : commands) {
    pusher.settle();
  }
  settleShared(rig, commands);
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
  const Reader reader(rig->temporary.pool());
  drive(*rig, reader);
  std::printf("%u cycles\n", rig->cycles.get());
  rig.reset();
  EXPECT_EQ(reader.status(), 0);
  expectAllNodesInThePool();
}

// Not for detectors that watch instructions: both sides write by relaxed stores, which they
// take for plain ones.
TEST(Threads, LetOthersMoveAnActuator) {
  Rig rig;
  Pusher pusher(rig, 0);
  rig.pushersEnd.set(1);
  std::thread cycle(&Rig::cycle, &rig);
  std::thread commands(&Pusher::run, &pusher);
  constexpr std::uint32_t moves = 100'000;
  for (std::uint32_t i = 0; i < moves; ++i) {
    rig.machine.moveFromOutside(swayed, static_cast<float>(swayed) + static_cast<float>(i % 2));
  }
  commands.join();
  rig.cyclesEnd.set(1);
  cycle.join();
  pusher.settle();
  EXPECT_EQ(rig.machine.counters(swayed).movedFromOutside, moves);
}

int main(int argc, char** argv) {
  program = argv[0];
  if (argc == 2 && std::strncmp(argv[1], "--reader=", 9) == 0) {
    return readPool(argv[1] + 9);
  }
  testing::InitGoogleTest(&argc, argv);
  for (int i = 1; i < argc; ++i) {
    if (std::sscanf(argv[i], "--seed=%u", &seed) + std::sscanf(argv[i], "--seconds=%u", &seconds) <
        1) {
      return 2;
    }
  }
  return RUN_ALL_TESTS();
}
