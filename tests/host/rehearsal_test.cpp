// What a rehearsal tells is what a run tells. TORVEX_ROUNDS sets how many random plans are
// compared, TORVEX_SEED the first of them; TORVEX_BIG makes the long plan full size.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <map>
#include <utility>

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
    options.session.guard = host::GuardMode::off;
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

/// The same with all rounds written out.
Case writtenOut(const Case& made) {
  Case all = made;
  for (host::CommandBatch& batch : all.batches) {
    const std::uint32_t rounds = std::exchange(batch.repeat, 1);
    const host::CommandBatch first = batch;
    for (std::uint32_t round = 1; round < rounds; ++round) {
      for (std::size_t i = 0; i < first.times.size(); ++i) {
        if (first.times[i] > 0) {
          batch.times.push_back(first.times[i] + round * first.times.back());
          batch.locations.emplace_back();
          for (std::size_t column = 0; column < first.actuators.size(); ++column) {
            batch.values.push_back(first.value(i, column));
            if (!first.velocities.empty()) {
              const std::size_t position = i * first.actuators.size() + column;
              batch.velocities.push_back(first.velocities[position]);
              batch.accelerations.push_back(first.accelerations[position]);
            }
          }
        }
      }
    }
  }
  return all;
}

/// What is told otherwise of rounds that are written out; empty when nothing is.
std::string differenceToWrittenOut(const Case& made, const host::Plan& plan) {
  const Case all = writtenOut(made);
  const host::Plan planned = all.plan();
  Diary byRule(made.machine, plan), byHand(all.machine, planned);
  host::rehearse(made.machine, plan, byRule);
  host::rehearse(all.machine, planned, byHand);
  return byRule.differenceTo(byHand);
}

/// Velocities for some of its points, and accelerations for some of those.
void bend(host::CommandBatch& motion, Random& random) {
  constexpr float none = std::numeric_limits<float>::quiet_NaN();
  const std::uint32_t share = 50 + random.below(60), accelerated = random.below(150);
  for (std::size_t i = 0; i < motion.values.size(); ++i) {
    const bool moves = random.chance(share);
    const bool known = moves && random.chance(accelerated);
    motion.velocities.push_back(moves ? static_cast<float>(random.below(200)) / 50 - 2 : none);
    motion.accelerations.push_back(known ? static_cast<float>(random.below(200)) / 50 - 2 : none);
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
    if (!motion.times.empty() && motion.times.back() > 0 && random.chance(30)) {
      const auto points = static_cast<std::uint32_t>(motion.times.size());
      motion.repeat += random.below(std::min(4000 / points, 20'000 / motion.times.back()) + 1);
    }
    motion.fromMs = at - std::min(at, random.chance(30) ? random.below(500) : 0);
    if (made.batches.size() > 1 || motion.times.empty() || random.chance(50)) {
      motion.atMs = at;
    }
    if (random.chance(40)) {
      bend(motion, random);
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
    EXPECT_EQ(differenceToWrittenOut(made, plan), "") << "seed " << seed;
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
    Diary unused(made.machine, plan);
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

/// Counts points, and segments that are too steep.
struct Tally : host::Listener {
  void tell(const host::Event& event, const host::Point* /*points*/) override {
    counts[event.kind] += event.kind == host::EventKind::steep ? event.rounds : event.count;
    ++told;
  }
  std::map<host::EventKind, std::uint64_t> counts;
  int told = 0;
};

// Undisturbed rounds cost nothing, and what clears them tells of them at once.
TEST(Rehearsal, CountsUndisturbedRoundsTogether) {
  Case made;
  made.addActuator(true);
  made.machine.description.actuators[0].maximumVelocity = 5.0F;
  host::CommandBatch& waves = made.addBatch(TimedCommand::MERGE, {0});
  waves.atMs = 0;
  waves.repeat = 100'000'000;
  addPoint(waves, 3, 0.01F);
  addPoint(waves, 7, 1.0F);
  addPoint(waves, 10, 0.0F);
  host::CommandBatch& stop = made.addBatch(TimedCommand::CLEAR_AFTER, {0});
  stop.atMs = stop.fromMs = 900'000'000;
  addPoint(stop, 5, 0.01F);
  const host::Plan plan = made.plan();
  Tally tally;
  const host::PointCounts counts = host::rehearse(made.machine, plan, tally)[0];
  constexpr std::uint64_t done = 270'000'001, cleared = 29'999'999;
  EXPECT_EQ(counts.reached, done + 1);
  EXPECT_EQ(counts.cleared, cleared);
  EXPECT_EQ(tally.counts[host::EventKind::reached], counts.reached);
  EXPECT_EQ(tally.counts[host::EventKind::cleared], cleared);
  EXPECT_EQ(tally.counts[host::EventKind::steep], done / 3 * 2);
  EXPECT_LT(tally.told, 1000);
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
  const host::Plan plan = made.plan();
  Diary unused(made.machine, plan);
  const auto counts = host::rehearse(made.machine, plan, unused);
  EXPECT_EQ(counts[0].points, base + batches * pointsEach);
  EXPECT_EQ(counts[0].reached, counts[0].points);
}

TEST(Rehearsal, TakesManyBatches) {
  for (const Where where : {Where::behind, Where::soon, Where::midway}) {
    expectAllReached(where);
  }
}

}  // namespace
