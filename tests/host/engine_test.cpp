// The engine beside the library alone: whatever the command thread does and when, each axis
// moves as if every batch had been handed to a timeline whole, when it was taken.
// TORVEX_ROUNDS=N TORVEX_SEED=N: so many random runs (300), from this seed on (1).

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "host/engine/engine.h"
#include "host/engine/library.h"
#include "host/motion/limits.h"
#include "tests/host/batches.h"
#include "tests/support/bits.h"

namespace {

using host::Event;
using host::EventKind;
using host::ScheduledBatch;

host::MachineModel machineOf(std::size_t axes) {
  host::MachineModel machine;
  for (std::size_t i = 0; i < axes; ++i) {
    simulation::Actuator& actuator = machine.description.actuators.emplace_back();
    actuator.name = "a" + std::to_string(i);
    actuator.interpolates = i % 2 == 0;
    actuator.minimum = -1.5;
    actuator.maximum = 1.75;
  }
  return machine;
}

/// What a run did, to be done again without a host.
struct Done {
  struct Push {
    int actuator;
    std::uint32_t batch;
  };
  struct Cycle {
    std::int64_t timeMs, previousMs;
    /// In the order in which they came, before the cycle.
    std::vector<Push> pushes;
    std::map<int, float> external;
    std::vector<std::uint32_t> bits;
  };
  std::vector<Cycle> cycles;
  std::vector<ScheduledBatch> batches;
};

/// Notes what became of each point, and where batches fell.
class Witness : public host::Listener {
 public:
  using PointKey = std::tuple<std::uint32_t, int, std::uint32_t>;

  void tell(const Event& event, const host::Point* points) override {
    if (event.kind == EventKind::taken) {
      pushes[event.timeMs].push_back({event.actuator, event.batch});
    }
    if (event.kind == EventKind::reached || event.kind == EventKind::cleared) {
      for (std::uint32_t i = 0; i < event.count; ++i) {
        if (points != nullptr) {
          EXPECT_EQ(points[i].batch, event.batch);
          EXPECT_EQ(points[i].index, event.point + i);
        }
        ++told[{event.batch, event.actuator, event.point + i}];
      }
    }
    if (event.kind == EventKind::refused) {
      refused += event.count;
    }
  }

  /// By the latest cycle before them.
  std::map<std::int64_t, std::vector<Done::Push>> pushes;
  std::map<PointKey, int> told;
  std::uint64_t refused = 0;
};

class RandomRun {
 public:
  explicit RandomRun(unsigned long seed, float maximumVelocity = unlimited)
      : random_(static_cast<std::uint32_t>(seed)),
        isGuarded_(maximumVelocity < unlimited),
        machine_(machineOf(1 + pick(3))) {
    for (simulation::Actuator& actuator : machine_.description.actuators) {
      actuator.maximumVelocity = maximumVelocity;
    }
  }

  static constexpr float unlimited = std::numeric_limits<float>::infinity();

  [[nodiscard]] const host::MachineModel& machine() const { return machine_; }
  [[nodiscard]] std::uint32_t startTick() const { return options_.startTick; }

  Done run() {
    options_.late = pick(2) == 0 ? host::Late::stand : host::Late::catchUp;
    options_.startTick = pick(2) == 0 ? 0 : 0xFFFFFC00;
    host::Engine engine(machine_, 10, options_);
    engine.addListener(witness_);
    Done done;
    for (std::uint32_t count = pick(6); count > 0; --count) {
      submit(engine, done, 0);
    }
    engine.start();
    // The command thread may be late by up to thirty cycles, the cycle by up to eight.
    const std::uint32_t mostLate = pick(3) == 0 ? 30 : 2;
    const bool calm = pick(2) == 0;
    std::int64_t clock = 0;
    for (int i = 0; i < 400; ++i) {
      if (i < 200 && pick(12) == 0) {
        submit(engine, done, engine.timeMs());
      }
      if (isGuarded_ && pick(1000) == 0) {
        engine.end();
      }
      if (pick(mostLate) == 0) {
        engine.pass();
      }
      const std::map<int, float> external = disturb(engine, i < 200);
      engine.wake(clock);
      clock += calm ? 1 : 1 + (pick(6) == 0 ? pick(8) : 0);
      cycle(engine, done, external);
    }
    settle(engine, done, clock);
    finish(engine, done);
    return done;
  }

  /// The same with threads: cycles and passes as fast as they can, while this one submits.
  Done runThreads() {
    host::Engine engine(machine_, 10, options_);
    engine.addListener(witness_);
    Done done;
    engine.start();
    std::atomic<std::int64_t> nowMs{0};
    std::atomic<bool> allCame{false}, ended{false};
    std::thread commands([&] {
      while (!ended) {
        const bool came = allCame;
        engine.pass();
        ended = came && engine.isIdle();
      }
    });
    std::thread cycles([&] {
      for (std::int64_t clock = 0; !ended; ++clock) {
        engine.wake(clock);
        cycle(engine, done, {});
        nowMs = engine.timeMs();
      }
    });
    for (int i = 0; i < 60; ++i) {
      submit(engine, done, nowMs);
    }
    allCame = true;
    cycles.join();
    commands.join();
    finish(engine, done);
    return done;
  }

 private:
  void finish(const host::Engine& engine, Done& done) {
    for (Done::Cycle& cycle : done.cycles) {
      cycle.pushes = witness_.pushes[cycle.previousMs];
    }
    expectAllTold(engine, done);
  }

  std::uint32_t pick(std::uint32_t below) { return random_.below(below); }

  void submit(host::Engine& engine, Done& done, std::int64_t nowMs) {
    auto motion = std::make_shared<host::CommandBatch>(
        randomBatch(random_, machine_, pick(4) == 0 ? 120 : 12, pick(3) == 0 ? 3 : 70, 100));
    ScheduledBatch batch;
    if (pick(4) != 0) {
      batch.momentMs = nowMs + pick(600) - 50;
    }
    const std::int64_t grid = pick(2) == 0 ? 10 : 1;
    batch.originMs = (batch.momentMs.value_or(nowMs) + pick(300) - 150) / grid * grid;
    if (isGuarded_ && pick(2) == 0) {
      batch.interpolation = host::Interpolation::smooth;
      motion->isStop = motion->times.empty();
    }
    batch.commands = std::move(motion);
    EXPECT_EQ(engine.submit(batch), done.batches.size());
    done.batches.push_back(std::move(batch));
  }

  std::map<int, float> disturb(host::Engine& engine, bool allowed) {
    std::map<int, float> external;
    if (allowed && pick(60) == 0) {
      external[0] = static_cast<float>(pick(100)) / 50.0F - 1.0F;
      engine.machine().moveFromOutside(0, external[0]);
    }
    return external;
  }

  void cycle(host::Engine& engine, Done& done, const std::map<int, float>& external) {
    for (const auto& [actuator, value] : external) {
      pendingExternal_[actuator] = value;
    }
    const std::int64_t previousMs = engine.timeMs();
    if (engine.goOn() == 0) {
      return;
    }
    Done::Cycle& cycle = done.cycles.emplace_back();
    cycle.timeMs = engine.timeMs();
    cycle.previousMs = previousMs;
    cycle.external = std::exchange(pendingExternal_, {});
    for (const host::Axis& axis : engine.axes()) {
      cycle.bits.push_back(static_cast<std::uint32_t>(host::bitsIn(*axis.command)));
    }
  }

  void settle(host::Engine& engine, Done& done, std::int64_t clock) {
    for (int i = 0; i < 3000 && !engine.isIdle(); ++i) {
      engine.pass();
      engine.wake(clock++);
      cycle(engine, done, {});
    }
    EXPECT_TRUE(engine.isIdle());
  }

  void expectAllTold(const host::Engine& engine, const Done& done) {
    std::uint64_t points = 0;
    for (const ScheduledBatch& batch : done.batches) {
      points += batch.commands->size() * batch.commands->actuators.size();
    }
    EXPECT_EQ(witness_.told.size() + witness_.refused, points);
    for (const auto& [point, times] : witness_.told) {
      EXPECT_EQ(times, 1) << "batch " << std::get<0>(point) << ", point " << std::get<2>(point);
    }
    for (const host::Axis& axis : engine.axes()) {
      EXPECT_EQ(axis.counts.left(), 0U);
      EXPECT_TRUE(axis.isIdle());
    }
  }

  Random random_;
  /// Then on curves, and with stops: what moves is not compared.
  const bool isGuarded_;
  host::EngineOptions options_;
  host::MachineModel machine_;
  Witness witness_;
  std::map<int, float> pendingExternal_;
};

/// The library on a machine, without a host.
class Reference {
 public:
  Reference(const host::MachineModel& machine, std::uint32_t startTick)
      : described_(machine), machine_("", machine.description), startTick_(startTick) {}

  /// False when a timeline had no room for a batch.
  bool push(const ScheduledBatch& batch, int actuator) {
    const host::CommandBatch motion = writtenOut(*batch.commands);
    const auto column = static_cast<std::size_t>(
        std::find(motion.actuators.begin(), motion.actuators.end(), actuator) -
        motion.actuators.begin());
    CommandList items;
    for (std::size_t i = 0; i < motion.times.size(); ++i) {
      items.emplace_back(host::limited(described_.actuator(actuator), motion.value(i, column)),
                         stamp(batch.originMs + motion.times[i]));
    }
    library_.commands.AddTimedCommand(described_.actuator(actuator).name + "/Value", items,
                                      motion.mode);
    return items.empty();
  }

  void run(const Done::Cycle& cycle) {
    for (const auto& [actuator, value] : cycle.external) {
      machine_.moveFromOutside(actuator, value);
    }
    library_.commands.run(stamp(cycle.timeMs), stamp(cycle.previousMs));
  }

  [[nodiscard]] std::uint32_t bits(std::size_t actuator) const {
    return static_cast<std::uint32_t>(
        host::bitsIn(machine_.actuatorValue(static_cast<int>(actuator))));
  }

 private:
  [[nodiscard]] std::uint32_t stamp(std::int64_t timeMs) const {
    return startTick_ + static_cast<std::uint32_t>(timeMs);
  }

  const host::MachineModel& described_;
  simulation::Machine machine_;
  host::Library library_;
  const std::uint32_t startTick_;
};

/// True when it was compared to the end.
bool expectSame(const Done& done, const host::MachineModel& machine, std::uint32_t startTick) {
  Reference reference(machine, startTick);
  for (const Done::Cycle& cycle : done.cycles) {
    for (const Done::Push& push : cycle.pushes) {
      if (!reference.push(done.batches[push.batch], push.actuator)) {
        return false;
      }
    }
    reference.run(cycle);
    for (std::size_t axis = 0; axis < cycle.bits.size(); ++axis) {
      EXPECT_EQ(cycle.bits[axis], reference.bits(axis))
          << "actuator " << axis << " at " << cycle.timeMs << " ms";
      if (cycle.bits[axis] != reference.bits(axis)) {
        return true;
      }
    }
  }
  return true;
}

/// How many steps were beyond what the guard allows: plus 1e-4, and two units in the last place.
int tooLargeSteps(const Done& done, float maximumVelocity) {
  std::vector<std::uint32_t> before(done.cycles.front().bits.size(), 0);
  int tooLarge = 0;
  for (const Done::Cycle& cycle : done.cycles) {
    for (std::size_t axis = 0; axis < before.size(); axis += 2) {
      const auto number = static_cast<int>(axis);
      const float from =
          cycle.external.count(number) != 0 ? cycle.external.at(number) : floatOf(before[axis]);
      const float to = floatOf(cycle.bits[axis]);
      const double allowed = double{maximumVelocity} * 1e-3 *
                             static_cast<double>(cycle.timeMs - cycle.previousMs) * 1.0001;
      const double ulp = double{std::nextafter(2.0F, 3.0F)} - 2.0;
      tooLarge += std::abs(double{to} - double{from}) <= allowed + 2 * ulp ? 0 : 1;
    }
    before = cycle.bits;
  }
  return tooLarge;
}

void compareRandomRuns(unsigned long rounds, Done (RandomRun::*drive)()) {
  const unsigned long seed = fromEnvironment("TORVEX_SEED", 1);
  unsigned long compared = 0;
  for (unsigned long round = seed; round < seed + rounds && !testing::Test::HasFailure(); ++round) {
    SCOPED_TRACE("TORVEX_SEED=" + std::to_string(round));
    RandomRun run(round);
    const Done done = (run.*drive)();
    compared += expectSame(done, run.machine(), run.startTick()) ? 1 : 0;
  }
  EXPECT_GT(compared * 10, rounds * 9);
}

TEST(Engine, MovesAsIfEveryBatchWereHandedOverWhole) {
  compareRandomRuns(fromEnvironment("TORVEX_ROUNDS", 300), &RandomRun::run);
}

TEST(Guard, LetsNoStepBeMoreThanTheMaximumVelocity) {
  constexpr float maximumVelocity = 6.0F;
  const unsigned long seed = fromEnvironment("TORVEX_SEED", 1);
  const unsigned long rounds = fromEnvironment("TORVEX_ROUNDS", 300) / 3;
  int toHold = 0;
  for (unsigned long round = seed; round < seed + rounds; ++round) {
    SCOPED_TRACE("TORVEX_SEED=" + std::to_string(round));
    EXPECT_EQ(tooLargeSteps(RandomRun(round, maximumVelocity).run(), maximumVelocity), 0);
    toHold += tooLargeSteps(RandomRun(round).run(), maximumVelocity);
  }
  EXPECT_GT(toHold, 10 * static_cast<int>(rounds)) << "little to hold";
}

TEST(Engine, MovesSoBesideThreads) {
  compareRandomRuns(fromEnvironment("TORVEX_ROUNDS", 300) / 30, &RandomRun::runThreads);
}

}  // namespace
