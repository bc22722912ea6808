// What a rehearsal tells is what a run tells. TORVEX_ROUNDS sets how many random plans are
// compared, TORVEX_SEED the first of them; TORVEX_BIG makes the long plan full size.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "host/results/runoptions.h"
#include "tests/host/bothways.h"
#include "tests/support/random.h"

namespace {

/// A machine, batches for it, and how they are run.
struct Case {
  host::MachineModel machine;
  std::vector<host::CommandBatch> batches;
  host::RunOptions options;

  Case() {
    options.session.clock = host::Clock::simulated;
    options.session.poolName = "";
  }
  void addActuator(bool interpolates) {
    simulation::Actuator& actuator = machine.description.actuators.emplace_back();
    actuator.name = "a" + std::to_string(machine.description.actuators.size());
    actuator.interpolates = interpolates;
  }
  host::CommandBatch& addBatch(TimedCommand::commandType mode, const std::vector<int>& actuators) {
    host::CommandBatch& motion = batches.emplace_back();
    motion.mode = mode;
    motion.actuators = actuators;
    return motion;
  }
  [[nodiscard]] host::Plan plan() const { return planRun(machine, batches, options.timing); }
};

void addPoint(host::CommandBatch& motion, std::uint32_t timeMs, float value) {
  motion.times.push_back(timeMs);
  motion.locations.emplace_back();
  motion.values.resize(motion.values.size() + motion.actuators.size(), hal::AttrGeneric(value));
}

Case randomMachine(Random& random) {
  Case made;
  const std::uint32_t axes = 1 + random.below(3);
  for (std::uint32_t i = 0; i < axes; ++i) {
    made.addActuator(random.chance(60));
    simulation::Actuator& actuator = made.machine.description.actuators.back();
    if (random.chance(50)) {
      actuator.minimum = -1.5;
      actuator.maximum = 1.0;
    }
    if (random.chance(50)) {
      actuator.maximumVelocity = 5.0F;
    }
    if (!actuator.interpolates && random.chance(30)) {
      actuator.typeCode = 1;
      actuator.value = std::int32_t{0};
    }
  }
  made.options.timing.cycleMs = 1 + random.below(25);
  made.options.session.startTick = random.chance(20) ? 0xFFFFFC00 : 0;
  if (random.chance(50)) {
    made.options.timing.approachMs = random.below(100);
  }
  return made;
}

void fill(host::CommandBatch& motion, const Case& made, Random& random) {
  // Sparse, with segments that are sampled; usual; dense; many at the same time.
  constexpr std::uint32_t widest[] = {9000, 60, 4, 1};
  const std::uint32_t kind = random.chance(85) ? random.below(2) : 2 + random.below(2);
  const std::uint32_t points = random.below(kind == 0 ? 5 : kind == 1 ? 80 : 400);
  std::uint32_t time = random.below(200);
  for (std::uint32_t i = 0; i < points; ++i, time += random.below(widest[kind] + 1)) {
    motion.times.push_back(time);
    motion.locations.emplace_back();
    for (const int actuator : motion.actuators) {
      hal::AttrGeneric& value = motion.values.emplace_back();
      const float number = static_cast<float>(random.below(1000)) / 250.0F - 2.0F;
      if (made.machine.actuator(actuator).typeCode == hal::floatTypeCode) {
        value.asFloat = number;
      } else {
        value.asInt = static_cast<std::int32_t>(2.0F * number);
      }
    }
  }
}

Case randomCase(int seed) {
  Random random(static_cast<unsigned>(seed));
  Case made = randomMachine(random);
  const int axes = static_cast<int>(made.machine.description.actuators.size());
  for (std::uint32_t at = random.below(300); at < 4000; at += random.below(600)) {
    std::vector<int> actuators;
    for (int axis = 0; axis < axes; ++axis) {
      if (random.chance(70)) {
        actuators.push_back(axis);
      }
    }
    const auto mode = static_cast<TimedCommand::commandType>(1 + random.below(4));
    host::CommandBatch& motion = made.addBatch(mode, actuators);
    fill(motion, made, random);
    motion.fromMs = at - std::min(at, random.chance(30) ? random.below(500) : 0);
    if (made.batches.size() > 1 || motion.times.empty() || random.chance(50)) {
      motion.atMs = at;
    }
  }
  return made;
}

TEST(Rehearsal, TellsWhatARunTells) {
  const int first = static_cast<int>(fromEnvironment("TORVEX_SEED", 1));
  const int rounds = static_cast<int>(fromEnvironment("TORVEX_ROUNDS", 200));
  int compared = 0;
  for (int seed = first; seed < first + rounds; ++seed) {
    const Case made = randomCase(seed);
    host::Plan plan;
    try {
      plan = made.plan();
    } catch (const host::UserError&) {
      continue;  // a batch that can never be taken
    }
    ++compared;
    EXPECT_EQ(disagreement(made.machine, plan, made.options.session), "") << "seed " << seed;
  }
  EXPECT_GE(compared, rounds / 2);
}

// 511 points fit into two successive cycles, however many batches bring them; one more is
// refused with all of its batch.
TEST(Rehearsal, RefusesTheBatchThatIsTooDense) {
  for (const std::uint32_t second : {211U, 212U}) {
    Case made;
    made.addActuator(true);
    made.addActuator(false);
    host::CommandBatch& first = made.addBatch(TimedCommand::MERGE, {0, 1});
    first.atMs = 0;
    for (std::uint32_t i = 0; i <= 300; ++i) {
      addPoint(first, 1001 + i / 15, 0.5F);
    }
    host::CommandBatch& dense = made.addBatch(TimedCommand::MERGE, {1, 0});
    dense.atMs = 500;
    dense.fromMs = 1001;
    for (std::uint32_t i = 0; i < second; ++i) {
      addPoint(dense, i * 20 / second, 0.25F);
    }
    const host::Plan plan = made.plan();
    Diary unused(made.machine);
    for (const host::PointCounts& counts : host::rehearse(made.machine, plan, unused)) {
      EXPECT_EQ(counts.refused, second == 212 ? second : 0);
      EXPECT_EQ(counts.reached, 301 + second - counts.refused);
    }
    EXPECT_EQ(disagreement(made.machine, plan, made.options.session), "");
  }
}

// However many nodes it takes: all that is overdue is due in the next cycle.
TEST(Rehearsal, TakesBatchesThatAreWhollyLate) {
  Case made;
  for (int i = 0; i < 3; ++i) {
    made.addActuator(true);
  }
  host::CommandBatch& late = made.addBatch(TimedCommand::MERGE, {0, 1, 2});
  late.atMs = 20'000;
  for (std::uint32_t i = 0; i < 400; ++i) {
    addPoint(late, i * 40, 0.5F);
  }
  EXPECT_EQ(disagreement(made.machine, made.plan(), made.options.session), "");
}

/// Where the points of many batches fall among those of a long trajectory.
enum class Where { behind, soon, midway };

void expectAllReached(Where where) {
  const std::uint32_t batches = std::getenv("TORVEX_BIG") == nullptr ? 6'000 : 60'000;
  constexpr std::uint32_t pointsEach = 4, stepMs = 20;
  const std::uint32_t base = batches * 9 / 2;
  Case made;
  made.addActuator(true);
  host::CommandBatch& trajectory = made.addBatch(TimedCommand::MERGE, {0});
  for (std::uint32_t i = 0; i < base; ++i) {
    addPoint(trajectory, i * stepMs, static_cast<float>(i % 100) * 0.01F);
  }
  for (std::uint32_t i = 0; i < batches; ++i) {
    host::CommandBatch& batch = made.addBatch(TimedCommand::MERGE, {0});
    batch.atMs = i * 2;
    batch.fromMs = where == Where::soon     ? i * 2
                   : where == Where::behind ? (base + i * pointsEach) * stepMs
                                            : (base / 2 + i % 1000) * stepMs;
    for (std::uint32_t point = 0; point < pointsEach; ++point) {
      addPoint(batch, 1 + point * 3 * stepMs, 0.5F);
    }
  }
  Diary unused(made.machine);
  const auto counts = host::rehearse(made.machine, made.plan(), unused);
  EXPECT_EQ(counts[0].points, base + batches * pointsEach);
  EXPECT_EQ(counts[0].reached, counts[0].points);
}

TEST(Rehearsal, TakesManyBatches) {
  for (const Where where : {Where::behind, Where::soon, Where::midway}) {
    expectAllReached(where);
  }
}

}  // namespace
