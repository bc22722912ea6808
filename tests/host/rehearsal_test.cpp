// What a rehearsal tells is what a run tells. TORVEX_ROUNDS sets how many random plans are
// compared, TORVEX_SEED the first of them.

#include <gtest/gtest.h>

#include <algorithm>

#include "host/motion/scaling.h"
#include "host/results/runoptions.h"
#include "tests/host/batches.h"
#include "tests/host/bothways.h"

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
    if (random.chance(60)) {
      actuator.maximumVelocity = random.chance(50) ? 5.0F : 60.0F;
    }
    if (actuator.interpolates && random.chance(30)) {
      made.machine.maximumAccelerations[static_cast<int>(i)] = random.chance(50) ? 40.0 : 2000.0;
    }
    if (random.chance(20)) {
      made.machine.followers.push_back(
          {"f", static_cast<int>(i), random.chance(50) ? -0.5 : 3.0, 0.1, -1.3, 2.0, 4.0});
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

/// Batches that ask for too much although they were stretched, or that shrank.
int stillTooFast(const Case& made) {
  Case scaled = made;
  host::stretchToLimits(scaled.machine, scaled.batches, scaled.options.timing);
  const host::Plan plan = scaled.plan();
  struct : host::Listener {
    void tell(const host::Event& event, const host::Point* /*points*/) override {
      const bool isJudged =
          event.kind == host::EventKind::steep || event.kind == host::EventKind::abrupt;
      wrong += isJudged && (*batches)[event.batch].stretch > 1.0 ? 1 : 0;
    }
    const std::vector<host::CommandBatch>* batches = nullptr;
    int wrong = 0;
  } seen;
  seen.batches = &scaled.batches;
  host::rehearse(scaled.machine, plan, seen);
  for (std::size_t i = 0; i < made.batches.size(); ++i) {
    seen.wrong += scaled.batches[i].lastMs() < made.batches[i].lastMs() ? 1 : 0;
  }
  return seen.wrong;
}

/// What is told otherwise of rounds that are written out; empty when nothing is.
std::string differenceToWrittenOut(const Case& made, const host::Plan& plan) {
  Case all = made;
  for (host::CommandBatch& batch : all.batches) {
    batch = writtenOut(batch);
  }
  const host::Plan planned = all.plan();
  Diary byRule(made.machine, plan), byHand(all.machine, planned);
  host::rehearse(made.machine, plan, byRule);
  host::rehearse(all.machine, planned, byHand);
  return byRule.differenceTo(byHand);
}

Case randomCase(int seed) {
  Random random(static_cast<unsigned>(seed));
  Case made = randomMachine(random);
  for (std::uint32_t at = random.below(300); at < 4000; at += random.below(600)) {
    // Sparse, with segments that are sampled; usual; dense; many at the same time.
    constexpr std::uint32_t widestMs[] = {9000, 60, 4, 1}, points[] = {5, 80, 400, 400};
    const std::uint32_t kind = random.chance(85) ? random.below(2) : 2 + random.below(2);
    host::CommandBatch& batch = made.batches.emplace_back(
        randomBatch(random, made.machine, points[kind], widestMs[kind], 4000));
    batch.isStop = batch.times.empty() && random.chance(70);
    batch.fromMs = at - std::min(at, random.chance(30) ? random.below(4000) : 0);
    if (made.batches.size() > 1 || batch.times.empty() || random.chance(50)) {
      batch.atMs = at;
    }
    if (random.chance(40)) {
      bend(batch, random);
    }
    // Smooth rounds each come to rest, written out they do not.
    if (batch.repeat == 1 && random.chance(40)) {
      batch.interpolation = static_cast<host::Interpolation>(random.below(3));
    }
  }
  return made;
}

bool mayPassTheGuard(const Case& made, const host::Plan& plan) {
  struct : host::Listener {
    void tell(const host::Event& event, const host::Point* /*points*/) override {
      warns = warns || (event.kind == host::EventKind::steep &&
                        machine->actuator(event.actuator).interpolates);
    }
    const host::MachineModel* machine = nullptr;
    bool warns = false;
  } seen;
  seen.machine = &made.machine;
  host::rehearse(made.machine, plan, seen);
  return !seen.warns;
}

// And what it does not warn of the guard never touches.
TEST(Rehearsal, TellsWhatARunTells) {
  const int first = static_cast<int>(fromEnvironment("TORVEX_SEED", 1));
  const int rounds = static_cast<int>(fromEnvironment("TORVEX_ROUNDS", 200));
  int compared = 0, passed = 0;
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
    if (seed % 10 == 0) {
      EXPECT_EQ(stillTooFast(made), 0) << "seed " << seed;
    }
    const bool passes = mayPassTheGuard(made, plan);
    passed += passes ? 1 : 0;
    Random disturbance(static_cast<unsigned>(seed));
    EXPECT_EQ(guardFault(made.machine, plan, passes, disturbance), "") << "seed " << seed;
  }
  EXPECT_GE(compared, rounds / 2);
  EXPECT_GE(passed, rounds / 10);
}

/// What one segment for itself does not tell of: at a cycle of 10 ms and a limit of 1 a second.
struct SteepRow {
  const char* what;
  int typeCode, follower;
  /// Handed over when, its points, which count from when. What comes later replaces.
  struct Batch {
    std::uint32_t atMs, fromMs;
    std::vector<std::pair<std::uint32_t, float>> points;
  };
  std::vector<Batch> batches;
  /// The first point that asks for too much, and how fast.
  std::uint32_t batch, point;
  double speed;

  [[nodiscard]] Case made() const {
    Case made;
    made.options.timing.cycleMs = 10;
    made.addActuator(typeCode == 7);
    simulation::Actuator& actuator = made.machine.description.actuators[0];
    actuator.maximumVelocity = 1.0F;
    actuator.typeCode = static_cast<std::uint8_t>(typeCode);
    if (typeCode == 1) {
      actuator.value = std::int32_t{0};
    }
    if (follower >= 0) {
      made.machine.followers.push_back({"f", 0, -2.0, 0.0, -9.0, 9.0, 1.0});
    }
    for (const Batch& given : batches) {
      const auto mode = given.atMs > 0 ? TimedCommand::REPLACE : TimedCommand::MERGE;
      host::CommandBatch& added = made.addBatch(mode, {0});
      added.atMs = given.atMs;
      added.fromMs = given.fromMs;
      for (const auto& [timeMs, value] : given.points) {
        addPoint(added, timeMs, value);
        added.values.back().asInt = typeCode == 1 ? 1 : added.values.back().asInt;
      }
    }
    return made;
  }
};

TEST(Rehearsal, JudgesByTheStepsOfTheCycles) {
  const SteepRow::Batch steep{0, 0, {{100, 4.0F}}};
  std::vector<SteepRow> rows = {
      {"many at one time", 7, -1, {}, 98, 0, 99.0},
      {"cut off by an empty batch", 7, -1, {steep, {50, 50, {}}}, 0, 0, 40.0},
      {"cut off by another", 7, -1, {steep, {50, 50, {{900, 2.0F}}}}, 0, 0, 40.0},
      {"two in the first cycle", 7, -1, {{0, 0, {{0, 0.01F}}}, {0, 0, {{0, 0.02F}}}}, 1, 0, 2.0},
      {"late", 7, -1, {{1000, 0, {{995, 0.01F}, {1995, 1.01F}}}}, 0, 0, 1.5},
      {"a follower", 7, 0, {{0, 0, {{100, 0.06F}}}}, 0, 0, 0.6},
      {"an integer", 1, -1, {{0, 0, {{50, 1.0F}}}}, 0, 0, 100.0},
  };
  for (std::uint32_t i = 1; i <= 100; ++i) {
    rows[0].batches.push_back({0, 0, {{1000, 0.01F * static_cast<float>(i)}}});
  }
  for (const SteepRow& row : rows) {
    SCOPED_TRACE(row.what);
    const Case made = row.made();
    struct : host::Listener {
      void tell(const host::Event& event, const host::Point* /*points*/) override {
        if (event.kind == host::EventKind::steep) {
          told.push_back(event);
        }
      }
      std::vector<host::Event> told;
    } seen;
    host::rehearse(made.machine, made.plan(), seen);
    ASSERT_FALSE(seen.told.empty());
    EXPECT_EQ(seen.told[0].batch, row.batch);
    EXPECT_EQ(seen.told[0].point, row.point);
    EXPECT_EQ(seen.told[0].follower, row.follower);
    EXPECT_NEAR(seen.told[0].amount, row.speed, 1e-3);
  }
}

// From any start, an approach takes no more than what was given; one of half the time often does.
TEST(Rehearsal, FindsApproachesWithinWhatWasGiven) {
  Random random(13);
  int tooShort = 0;
  for (int round = 0; round < 1000; ++round) {
    Case made;
    made.addActuator(true);
    simulation::Actuator& actuator = made.machine.description.actuators[0];
    actuator.value = static_cast<float>(random.between(-2.0, 2.0));
    actuator.maximumVelocity = static_cast<float>(random.between(0.1, 3.0));
    made.machine.approachVelocities[0] = double{actuator.maximumVelocity};
    made.machine.maximumAccelerations[0] = random.between(0.2, 20.0);
    made.options.timing.cycleMs = random.chance(50) ? 1 : 10;
    addPoint(made.addBatch(TimedCommand::MERGE, {0}), random.chance(30) ? random.below(900) : 0,
             static_cast<float>(random.between(-2.0, 2.0)));
    for (const bool halved : {false, true}) {
      const host::Plan plan = made.plan();
      Tally tally;
      host::rehearse(made.machine, plan, tally);
      const std::uint64_t tooMuch =
          tally.of(host::EventKind::steep).events + tally.of(host::EventKind::abrupt).events;
      tooShort += halved && tooMuch > 0 ? 1 : 0;
      ASSERT_TRUE(halved || tooMuch == 0) << "round " << round;
      made.options.timing.approachMs = plan.schedule.approachMs / 2;
    }
  }
  EXPECT_GT(tooShort, 300);
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

// Undisturbed rounds cost nothing, and what clears them tells of them at once.
TEST(Rehearsal, CountsUndisturbedRoundsTogether) {
  Case made;
  made.addActuator(true);
  made.machine.description.actuators[0].maximumVelocity = 5.0F;
  made.options.timing.cycleMs = 1;
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
  const Tally::Sum& reached = tally.of(host::EventKind::reached);
  const Tally::Sum& steep = tally.of(host::EventKind::steep);
  EXPECT_EQ(reached.points, counts.reached);
  EXPECT_EQ(tally.of(host::EventKind::cleared).points, cleared);
  EXPECT_EQ(steep.rounds, done / 3 * 2);
  EXPECT_LT(reached.events + steep.events, 1000U);
}

}  // namespace
