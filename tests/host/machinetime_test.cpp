// Machine time through the engine, on a clock that the test moves: stalls, late hand-overs,
// and a machine that idles for weeks.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>
#include <vector>

#include "host/engine/engine.h"
#include "tests/host/batches.h"

namespace {

using host::EventKind;
using host::Late;
using host::ScheduledBatch;

struct TimedValue {
  std::uint32_t timeMs;
  float value;
};

ScheduledBatch batchOf(std::int64_t momentMs, TimedCommand::commandType mode,
                       const std::vector<TimedValue>& points) {
  auto motion = std::make_shared<host::CommandBatch>();
  motion->mode = mode;
  motion->actuators = {0};
  for (const TimedValue& point : points) {
    motion->times.push_back(point.timeMs);
    motion->values.emplace_back(point.value);
  }
  return {std::move(motion), momentMs, momentMs};
}

constexpr float atRest = 0.0F;

host::EngineOptions optionsWith(Late late) {
  host::EngineOptions options;
  options.late = late;
  return options;
}

struct Rig {
  explicit Rig(Late late, std::int64_t cycleMs = 10) : engine(machine, cycleMs, optionsWith(late)) {
    engine.addListener(tally);
  }

  /// Starts on a ramp of one unit a second, which is to be stopped at this time.
  void startRamp(std::int64_t stopMs) {
    engine.submit(batchOf(0, TimedCommand::MERGE, {{0, atRest}, {10'000, 10.0F}}));
    engine.submit(batchOf(stopMs, TimedCommand::REPLACE, {}));
    engine.start();
  }

  /// So many cycles; after one of them the clock leaps on.
  void drive(int cycles, int last, std::int64_t leap) {
    for (int i = 0; i < cycles; ++i) {
      cycle(clock);
      clock += i == last ? leap : 1;
    }
  }

  [[nodiscard]] double value() const { return engine.axes()[0].commanded(); }

  /// One cycle when the clock has come to this point; commands come behind it.
  void cycle(std::int64_t clockCycle) {
    const double before = value();
    engine.wake(clockCycle);
    engine.goOn();
    largestStep = std::max(largestStep, std::abs(value() - before));
    engine.pass();
  }

  const host::MachineModel machine = oneAxis();
  host::Engine engine;
  Tally tally;
  std::int64_t clock = 0;
  double largestStep = 0.0;
};

TEST(MachineTime, GoesOnWhereItWasAfterAStall) {
  struct Case {
    Late late;
    double mostStep, atEnd;
  };
  for (const auto& [late, mostStep, atEnd] :
       {Case{Late::stand, 0.0301, 6.0}, {Late::catchUp, 2.0101, 8.0}}) {
    Rig rig(late);
    rig.startRamp(9000);
    // A cycle that ends two points of the grid too late is no stall; 200 are one.
    rig.drive(300, 50, 3);
    rig.drive(301, 0, 201);
    EXPECT_EQ(rig.engine.pace().stalls, 1U);
    EXPECT_EQ(rig.engine.pace().stalledMs, 2000);
    EXPECT_EQ(rig.engine.pace().overruns, 2U);
    EXPECT_EQ(rig.tally.of(EventKind::stalled).events, 1U);
    EXPECT_LE(rig.largestStep, mostStep);
    EXPECT_NEAR(rig.value(), atEnd + 0.02, 1e-4);
  }
}

TEST(MachineTime, PassesNoStopOver) {
  for (const Late late : {Late::stand, Late::catchUp}) {
    Rig rig(late);
    rig.startRamp(1000);
    rig.drive(500, 90, 300);
    EXPECT_NEAR(rig.value(), 1.0, 0.011);
    EXPECT_EQ(rig.engine.axes()[0].counts.cleared, 1U);
    EXPECT_FALSE(rig.engine.axes()[0].target.has_value());
  }
}

TEST(MachineTime, StandsForACommandThreadThatIsLateAndSaysSo) {
  Rig rig(Late::stand);
  rig.startRamp(1000);
  for (std::int64_t clock = 0; clock < 150; ++clock) {
    rig.engine.wake(clock);
    EXPECT_EQ(rig.engine.canGoOn(), clock < 100);
    rig.engine.goOn();
  }
  EXPECT_EQ(rig.engine.timeMs(), 990) << "short of the moment of the batch";
  EXPECT_EQ(rig.engine.pace().stands, 50U);
  EXPECT_EQ(rig.tally.of(EventKind::handedLate).events, 0U);
  rig.cycle(150);
  rig.cycle(151);
  EXPECT_EQ(rig.tally.of(EventKind::handedLate).events, 1U);
  EXPECT_NEAR(rig.value(), 0.99, 1e-5) << "stopped by the first cycle at its moment";

  // What comes after its moment is late as well; what comes without one is not.
  rig.engine.submit(batchOf(500, TimedCommand::MERGE, {{0, 2.0F}}));
  ScheduledBatch atOnce = batchOf(0, TimedCommand::MERGE, {{5000, 3.0F}});
  atOnce.momentMs.reset();
  rig.engine.submit(atOnce);
  rig.engine.pass();
  EXPECT_EQ(rig.tally.of(EventKind::handedLate).events, 2U);
  EXPECT_EQ(rig.engine.axes()[0].counts.late, 1U);
}

// Without an anchor the library would take the next point at once, because the stamp of its
// last one is further back than stamps compare.
TEST(MachineTime, ApproachesAPointAfterWeeksWithoutOne) {
  constexpr std::int64_t idleCycles = 1'200'000;
  Rig rig(Late::stand, 1000);
  rig.engine.submit(batchOf(0, TimedCommand::MERGE, {{2000, 1.0F}}));
  rig.engine.submit(batchOf(idleCycles * 1000, TimedCommand::MERGE, {{10'000, 11.0F}}));
  rig.engine.start();
  for (std::int64_t clock = 0; clock < idleCycles; ++clock) {
    rig.cycle(clock);
  }
  EXPECT_EQ(rig.value(), 1.0);
  for (int second = 0; second <= 10; ++second) {
    rig.cycle(idleCycles + second);
    // The line begins in the latest cycle before.
    EXPECT_NEAR(rig.value(), 1.0 + 10.0 * (second + 1) / 11.0, 1e-5) << second;
  }
}

// The same path whatever follows later, and close to its line however slow or far it is.
TEST(Segments, StayOnTheirLine) {
  struct Case {
    float from, to;
    std::uint32_t durationMs;
    double most;
  };
  for (const auto& [from, to, durationMs, most] : {Case{9000.0F, 9040.0F, 200'000, 2.0 / 1024},
                                                   {3.0F, 3.05F, 600'000, 1e-5},
                                                   {-0.001F, 1.5F, 100'000, 1e-5},
                                                   {-1e6F, 9e5F, 60'000, 2.0 / 16},
                                                   {-70.0F, 70.0F, 30'000, 4.0 / 262144}}) {
    std::vector<double> alone;
    for (const bool followed : {false, true}) {
      Rig rig(Late::stand, 1);
      rig.engine.submit(batchOf(0, TimedCommand::MERGE, {{0, from}, {durationMs, to}}));
      if (followed) {
        rig.engine.submit(batchOf(durationMs / 2, TimedCommand::MERGE, {{durationMs * 2, from}}));
      }
      rig.engine.start();
      double farthest = 0.0;
      for (std::int64_t clock = 0; clock <= durationMs; ++clock) {
        rig.cycle(clock);
        const double share = static_cast<double>(clock) / durationMs;
        farthest = std::max(farthest, std::abs(rig.value() - (from + share * (double{to} - from))));
        if (!followed) {
          alone.push_back(rig.value());
        } else {
          ASSERT_EQ(alone[static_cast<std::size_t>(clock)], rig.value());
        }
      }
      EXPECT_LE(farthest, most);
      EXPECT_EQ(rig.value(), double{to});
    }
  }
}

}  // namespace
