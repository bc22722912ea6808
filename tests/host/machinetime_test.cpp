// Machine time through the engine, on a clock that the test moves: stalls, late hand-overs,
// and a machine that idles for weeks.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>
#include <vector>

#include "host/engine/engine.h"

namespace {

using host::Event;
using host::EventKind;
using host::Late;
using host::ScheduledBatch;

host::MachineModel oneAxis() {
  host::MachineModel machine;
  machine.description.actuators.emplace_back().name = "a";
  return machine;
}

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

class Count : public host::Listener {
 public:
  explicit Count(EventKind kind) : kind_(kind) {}
  void tell(const Event& event, const host::Point* /*points*/) override {
    told += event.kind == kind_ ? 1 : 0;
  }
  int told = 0;

 private:
  const EventKind kind_;
};

struct Rig {
  explicit Rig(Late late, std::uint32_t cycleMs = 10)
      : engine(machine, {"", ".", cycleMs, 0, late}) {
    engine.addListener(lateHandOvers);
    engine.addListener(stalls);
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
  Count lateHandOvers{EventKind::handedLate};
  Count stalls{EventKind::stalled};
  double largestStep = 0.0;
};

constexpr float atRest = 0.0F;

TEST(MachineTime, GoesOnWhereItWasAfterAStall) {
  struct Case {
    Late late;
    double mostStep, atEnd;
  };
  for (const auto& [late, mostStep, atEnd] :
       {Case{Late::stand, 0.0301, 6.0}, {Late::catchUp, 2.0101, 8.0}}) {
    Rig rig(late);
    rig.engine.submit(batchOf(0, TimedCommand::MERGE, {{0, atRest}, {10'000, 10.0F}}));
    rig.engine.start();
    std::int64_t clock = 0;
    for (int i = 0; i <= 600; ++i) {
      rig.cycle(clock);
      // A cycle that ends two points of the grid too late is no stall; 200 are one.
      clock += i == 50 ? 3 : i == 300 ? 201 : 1;
    }
    EXPECT_EQ(rig.engine.pace().stalls, 1U);
    EXPECT_EQ(rig.engine.pace().stalledMs, 2000);
    EXPECT_EQ(rig.engine.pace().overruns, 2U);
    EXPECT_EQ(rig.stalls.told, 1);
    EXPECT_LE(rig.largestStep, mostStep);
    EXPECT_NEAR(rig.value(), atEnd + 0.02, 1e-4);
  }
}

TEST(MachineTime, PassesNoStopOver) {
  for (const Late late : {Late::stand, Late::catchUp}) {
    Rig rig(late);
    rig.engine.submit(batchOf(0, TimedCommand::MERGE, {{0, atRest}, {10'000, 10.0F}}));
    rig.engine.submit(batchOf(1000, TimedCommand::REPLACE, {}));
    rig.engine.start();
    std::int64_t clock = 0;
    for (int i = 0; i < 500; ++i) {
      rig.cycle(clock);
      clock += i == 90 ? 300 : 1;
    }
    EXPECT_NEAR(rig.value(), 1.0, 0.011);
    EXPECT_EQ(rig.engine.axes()[0].counts.cleared, 1U);
    EXPECT_FALSE(rig.engine.axes()[0].target.has_value());
  }
}

TEST(MachineTime, StandsForACommandThreadThatIsLateAndSaysSo) {
  Rig rig(Late::stand);
  rig.engine.submit(batchOf(0, TimedCommand::MERGE, {{0, atRest}, {10'000, 10.0F}}));
  rig.engine.submit(batchOf(1000, TimedCommand::REPLACE, {}));
  rig.engine.start();
  for (std::int64_t clock = 0; clock < 150; ++clock) {
    rig.engine.wake(clock);
    EXPECT_EQ(rig.engine.canGoOn(), clock < 100);
    rig.engine.goOn();
  }
  EXPECT_EQ(rig.engine.timeMs(), 990) << "short of the moment of the batch";
  EXPECT_EQ(rig.engine.pace().stands, 50U);
  EXPECT_EQ(rig.lateHandOvers.told, 0);
  rig.cycle(150);
  rig.cycle(151);
  EXPECT_EQ(rig.lateHandOvers.told, 1);
  EXPECT_NEAR(rig.value(), 0.99, 1e-5) << "stopped by the first cycle at its moment";

  // What comes after its moment is late as well; what comes without one is not.
  rig.engine.submit(batchOf(500, TimedCommand::MERGE, {{0, 2.0F}}));
  ScheduledBatch atOnce = batchOf(0, TimedCommand::MERGE, {{5000, 3.0F}});
  atOnce.momentMs.reset();
  rig.engine.submit(atOnce);
  rig.engine.pass();
  EXPECT_EQ(rig.lateHandOvers.told, 2);
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
