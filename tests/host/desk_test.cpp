// Several commanders at once, in simulated cycles, beside a model of who may do what.
// TORVEX_ROUNDS=N TORVEX_SEED=N: so many random runs (60), from this seed on (1).

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <numeric>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/engine/engine.h"
#include "tests/host/batches.h"

namespace {

using host::CommanderId;
using host::EventKind;
using host::Fault;

constexpr std::int64_t deskCycleMs = 10;
constexpr int deskAxes = 4;

host::MachineModel fourAxes() {
  host::MachineModel machine;
  for (int i = 0; i < deskAxes; ++i) {
    simulation::Actuator& actuator = machine.description.actuators.emplace_back();
    actuator.name = "a" + std::to_string(i);
    actuator.interpolates = i < 3;
    actuator.minimum = -1.0;
  }
  return machine;
}

/// What became of the points of each batch.
struct Fates : host::Listener {
  void tell(const host::Event& event, const host::Point* /*points*/) override {
    if (event.kind == EventKind::reached || event.kind == EventKind::cleared ||
        event.kind == EventKind::refused) {
      gone[event.batch] += event.count;
    }
    lost += event.kind == EventKind::lost && event.actuator < 0 ? 1 : 0;
  }
  std::map<std::uint32_t, std::uint64_t> gone;
  int lost = 0;
};

class ManyCommanders {
 public:
  explicit ManyCommanders(unsigned seed) : random_(seed), engine_(machine_, deskCycleMs) {
    engine_.addListener(fates_);
    engine_.start();
  }

  void run() {
    for (int i = 0; i < 600 && !testing::Test::HasFailure(); ++i) {
      if (i < 400) {
        for (std::uint32_t asked = random_.below(3); asked > 0; --asked) {
          ask();
        }
      }
      cycle();
    }
    for (int i = 0; i < 3000 && !engine_.isIdle(); ++i) {
      cycle();
    }
    account();
  }

 private:
  struct Known {
    std::set<int> axes;
    int priority = 0;
    std::int64_t leaseMs = 0, renewedMs = 0;
    bool stops = true;
  };
  struct AxisModel {
    CommanderId owner = 0;
    bool isHeld = false;
    std::int64_t movedBy = 0;
    double before = 0.0;
  };

  std::vector<int> someAxes() {
    std::vector<int> some;
    for (int i = 0; i < deskAxes; ++i) {
      if (random_.chance(40)) {
        some.push_back(i);
      }
    }
    return some.empty() ? std::vector<int>{0} : some;
  }
  CommanderId somebody() { return random_.below(latest_ + 2); }
  host::Answered expecting(bool isDone, const char* what) {
    return [this, isDone, what](const host::CommandAnswer& answer) {
      EXPECT_EQ(answer.isDone(), isDone)
          << what << ": " << static_cast<int>(answer.denial.reason) << " at " << engine_.timeMs();
      ++answers_;
    };
  }
  bool owns(CommanderId id, const std::vector<int>& some, bool orNobody = false) {
    return (id == 0 || known_.count(id) > 0) && std::all_of(some.begin(), some.end(), [&](int i) {
             return axes_[i].owner == id || (orNobody && axes_[i].owner == 0);
           });
  }

  void ask() {
    ++asked_;
    askFor(someAxes(), somebody());
    // One at a time, so that the model needs no order.
    engine_.pass(clockMs_);
    for (const int i : std::exchange(cleared_, {})) {
      EXPECT_EQ(engine_.axes()[static_cast<std::size_t>(i)].counts.left(), 0U) << i;
    }
    noteMoving();
  }

  void askFor(const std::vector<int>& some, CommanderId id) {
    host::Desk& desk = engine_.desk();
    switch (random_.below(12)) {
      case 0:
        desk.hold(some, expecting(true, "hold"));
        cleared_ = some;
        for (const int i : some) {
          axes_[i].isHeld = true;
        }
        break;
      case 1:
      case 2:
        desk.release({0, 1, 2, 3}, expecting(true, "release"));
        for (auto& [number, axis] : axes_) {
          axis.isHeld = false;
        }
        break;
      case 3:
        desk.stop(some, id, expecting(owns(id, some), "stop"));
        renew(id);
        break;
      case 4:
        enrol(some);
        break;
      case 5:
        resign(id);
        break;
      case 6:
        if (const std::int64_t leaseMs = 50 + random_.below(400); known_.count(id) > 0) {
          desk.renew(id, leaseMs, expecting(true, "renew"));
          known_[id].leaseMs = leaseMs;
        } else {
          desk.renew(id, {}, expecting(false, "renew"));
        }
        renew(id);
        break;
      default:
        request(id);
    }
  }

  void resign(CommanderId id) {
    engine_.desk().resign(id, expecting(known_.count(id) > 0, "resign"));
    for (const auto& [number, axis] : axes_) {
      if (id != 0 && axis.owner == id && known_[id].stops) {
        cleared_.push_back(number);
      }
    }
    forget(id);
  }

  /// Ramps take 250 ms, and begin a cycle later at most.
  void noteMoving() {
    for (auto& [number, axis] : axes_) {
      if (engine_.axes()[static_cast<std::size_t>(number)].counts.left() > 0) {
        axis.movedBy = engine_.timeMs() + 250 + 2 * deskCycleMs;
      }
    }
  }

  void renew(CommanderId id) {
    if (known_.count(id) > 0) {
      known_[id].renewedMs = clockMs_;
    }
  }
  void forget(CommanderId id) {
    for (auto& [number, axis] : axes_) {
      axis.owner = axis.owner == id ? 0 : axis.owner;
    }
    known_.erase(id);
  }

  void enrol(const std::vector<int>& some) {
    const Known wanted{{some.begin(), some.end()},
                       static_cast<int>(random_.below(3)),
                       50 + random_.below(400),
                       clockMs_,
                       random_.chance(70)};
    const bool isFree = std::all_of(some.begin(), some.end(), [&](int i) {
      return axes_[i].owner == 0 || known_[axes_[i].owner].priority < wanted.priority;
    });
    engine_.desk().enrol({"c", some, wanted.priority, wanted.leaseMs,
                          wanted.stops ? host::LossRule::stop : host::LossRule::runOut},
                         expecting(isFree, "enrol"));
    if (isFree) {
      cleared_ = some;
      known_[++latest_] = wanted;
      for (const int i : some) {
        axes_[i].owner = latest_;
      }
    }
  }

  void request(CommanderId id) {
    host::CommandRequest request;
    request.commander = id;
    request.isDryRun = random_.chance(10);
    bool isTaken = true;
    for (std::uint32_t i = 1 + random_.below(2); i > 0; --i) {
      auto batch = std::make_shared<host::CommandBatch>(randomBatch(random_, machine_, 8, 90, 60));
      host::ScheduledBatch& scheduled = request.batches.emplace_back();
      scheduled.isRelative = random_.chance(70);
      if (!scheduled.isRelative) {
        scheduled.momentMs = engine_.timeMs() + random_.below(400) - 50;
        scheduled.originMs = *scheduled.momentMs;
      }
      isTaken = isTaken && owns(id, batch->actuators, request.isDryRun) &&
                std::none_of(batch->actuators.begin(), batch->actuators.end(),
                             [&](int a) { return axes_[a].isHeld; });
      points_.push_back(request.isDryRun ? 0 : batch->size() * batch->actuators.size());
      scheduled.commands = std::move(batch);
    }
    const auto first = points_.end() - static_cast<std::ptrdiff_t>(request.batches.size());
    pointsOf_[id] += std::accumulate(first, points_.end(), std::uint64_t{0});
    isTaken && !request.isDryRun ? renew(id) : void();
    engine_.desk().request(std::move(request), expecting(isTaken, "request"));
  }

  void cycle() {
    clockMs_ += deskCycleMs;
    for (auto known = known_.begin(); known != known_.end();) {
      const CommanderId id = known->first;
      const bool isLost = clockMs_ - known->second.renewedMs > known->second.leaseMs;
      ++known;
      isLost ? forget(id) : void();
    }
    engine_.pass(clockMs_);
    engine_.wake(clockCycle_++);
    ASSERT_TRUE(engine_.canGoOn());
    engine_.goOn();
    engine_.pass(clockMs_);
    noteMoving();
    const host::CommandState state = engine_.desk().state();
    for (int i = 0; i < deskAxes; ++i) {
      const host::Axis& axis = engine_.axes()[static_cast<std::size_t>(i)];
      AxisModel& model = axes_[i];
      ASSERT_EQ(state.axes[static_cast<std::size_t>(i)].owner, model.owner) << i;
      const double value = axis.commanded();
      ASSERT_TRUE(value == model.before || engine_.timeMs() <= model.movedBy)
          << "axis " << i << " moves at " << engine_.timeMs();
      model.before = value;
    }
  }

  void account() {
    EXPECT_TRUE(engine_.isIdle());
    EXPECT_EQ(answers_, asked_);
    for (std::uint32_t batch = 0; batch < points_.size(); ++batch) {
      EXPECT_EQ(fates_.gone[batch], points_[batch]) << "batch " << batch;
    }
    for (const host::CommanderState& commander : engine_.desk().state().commanders) {
      const host::PointCounts& counts = commander.counts;
      EXPECT_EQ(counts.points, counts.reached + counts.cleared + counts.refused);
      EXPECT_EQ(counts.points, pointsOf_[commander.id]);
    }
    EXPECT_GT(fates_.lost, 0);
  }

  Random random_;
  const host::MachineModel machine_ = fourAxes();
  host::Engine engine_;
  Fates fates_;
  std::map<int, AxisModel> axes_{{0, {}}, {1, {}}, {2, {}}, {3, {}}};
  std::map<CommanderId, Known> known_;
  CommanderId latest_ = 0;
  std::vector<std::uint64_t> points_;
  std::map<CommanderId, std::uint64_t> pointsOf_;
  /// By what was just asked for.
  std::vector<int> cleared_;
  std::int64_t clockMs_ = 0, clockCycle_ = 0;
  int asked_ = 0, answers_ = 0;
};

TEST(Desk, LetsNobodyMoveWhatIsNotHisAndAccountsForEveryPoint) {
  const unsigned long seed = fromEnvironment("TORVEX_SEED", 1);
  const unsigned long rounds = fromEnvironment("TORVEX_ROUNDS", 60);
  for (unsigned long i = seed; i < seed + rounds && !HasFailure(); ++i) {
    SCOPED_TRACE("TORVEX_SEED=" + std::to_string(i));
    ManyCommanders(static_cast<unsigned>(i)).run();
  }
}

TEST(Desk, JudgesNoLeaseBeforeAllWasReadAfterAStall) {
  // Renewed by what was read; read without a renewal; not read for 100 ms.
  for (int what = 0; what < 3; ++what) {
    const host::MachineModel machine = fourAxes();
    host::Engine engine(machine, deskCycleMs);
    std::uint64_t stall = 0;
    engine.desk().setReader([&](std::uint64_t number) { stall = number; });
    engine.start();
    engine.desk().enrol({"c", {0}, 0, 100, host::LossRule::stop}, {});
    engine.pass(10);
    engine.wake(0);
    engine.pass(1000);
    EXPECT_EQ(stall, 1U);
    EXPECT_FALSE(engine.canGoOn()) << "machine time goes on before all was read";
    EXPECT_EQ(engine.desk().state().commanders.size(), 1U);
    if (what == 0) {
      engine.desk().renew(1, {}, {});
    }
    if (what < 2) {
      engine.desk().haveReadAll(stall);
    }
    engine.pass(what == 2 ? 1020 : 1010);
    EXPECT_EQ(engine.canGoOn(), what < 2);
    for (std::int64_t ms = 1030; ms <= 1100; ms += deskCycleMs) {
      engine.pass(ms);
    }
    EXPECT_EQ(engine.desk().state().commanders.size(), what == 0 ? 1U : 0U);
    EXPECT_TRUE(engine.canGoOn());
  }
}

host::ScheduledBatch batchOf(int actuator, const std::vector<std::uint32_t>& times, float value) {
  auto batch = std::make_shared<host::CommandBatch>();
  batch->actuators = {actuator};
  batch->times = times;
  batch->values.assign(times.size(), hal::AttrGeneric(value));
  host::ScheduledBatch scheduled;
  scheduled.commands = std::move(batch);
  scheduled.isRelative = true;
  return scheduled;
}

host::Denial denialOf(host::Engine& engine, host::CommandRequest request) {
  host::Denial denial;
  engine.desk().request(std::move(request),
                        [&](const host::CommandAnswer& answer) { denial = answer.denial; });
  engine.pass();
  return denial;
}

TEST(Desk, FreesFromTheGuardAndKeepsStillWhatIsHeld) {
  host::MachineModel machine = fourAxes();
  machine.description.actuators[0].maximumVelocity = 1.0F;
  host::Engine engine(machine, deskCycleMs);
  engine.start();
  std::int64_t clock = 0;
  const auto moveTo = [&](std::uint32_t timeMs, float value, int cycles) {
    host::CommandRequest request;
    request.batches = {batchOf(0, {timeMs}, value)};
    const Fault reason = denialOf(engine, std::move(request)).reason;
    for (int i = 0; i < cycles; ++i) {
      engine.pass();
      engine.wake(clock++);
      engine.goOn();
    }
    return reason;
  };
  EXPECT_EQ(moveTo(50, 1.0F, 5), Fault::none);
  EXPECT_EQ(moveTo(900, 0.5F, 0), Fault::guarded);
  engine.desk().release({0}, {});
  EXPECT_EQ(moveTo(900, 0.5F, 40), Fault::guarded) << "it ramps to rest first";
  EXPECT_EQ(moveTo(900, 0.5F, 100), Fault::none);
  EXPECT_EQ(engine.axes()[0].commanded(), 0.5);
  engine.desk().hold({0}, {});
  EXPECT_EQ(moveTo(900, 0.0F, 1), Fault::held);
  CommandList others(1);
  others.front() = {hal::AttrGeneric(1.0F), static_cast<std::uint32_t>(engine.timeMs() + 2000)};
  engine.axes()[0].timeline->pushTimedCommand(others, TimedCommand::MERGE);
  EXPECT_EQ(moveTo(900, 0.0F, 20), Fault::held);
  EXPECT_EQ(engine.axes()[0].commanded(), 0.5);
  EXPECT_TRUE(engine.isIdle());
}

TEST(Desk, SaysWhyAndTakesNothingOfARequest) {
  host::MachineModel machine = fourAxes();
  machine.description.actuators[0].maximumVelocity = 1.0F;
  host::Engine engine(machine, deskCycleMs);
  engine.start();
  engine.desk().enrol({"owner", {1}, 0, 1'000'000, host::LossRule::stop}, {});
  engine.desk().hold({2}, {});
  struct Case {
    int actuator;
    std::vector<std::uint32_t> times;
    float value;
    Fault reason;
    double figure, limit;
  };
  const std::vector<std::uint32_t> together(600, 5), many(1'000'001, 0);
  for (const Case& asked : {Case{0, {100}, HUGE_VALF, Fault::notFinite, HUGE_VAL, 1e28F},
                            {0, together, 0.0F, Fault::tooDense, 600.0, 511.0},
                            {0, {1000}, -3.0F, Fault::beyond, -3.0, -1.0},
                            {0, {100}, 0.2F, Fault::tooFast, 2.0, 1.0},
                            {0, {990}, 0.2F, Fault::none, 0.0, 0.0},
                            {1, {100}, 0.0F, Fault::owned, 0.0, 0.0},
                            {2, {100}, 0.0F, Fault::held, 0.0, 0.0},
                            {3, many, 0.0F, Fault::full, 0.0, 0.0}}) {
    host::CommandRequest request;
    request.isStrict = true;
    for (const int actuator : {3, asked.actuator}) {
      const bool isOther = actuator != asked.actuator;
      request.batches.push_back(isOther ? batchOf(3, {50}, 0.0F)
                                        : batchOf(actuator, asked.times, asked.value));
    }
    const host::PointCounts before = engine.axes()[3].counts;
    const host::Denial denial = denialOf(engine, std::move(request));
    EXPECT_EQ(denial.reason, asked.reason);
    if (asked.reason == Fault::none) {
      continue;
    }
    EXPECT_FLOAT_EQ(static_cast<float>(denial.figure), static_cast<float>(asked.figure));
    EXPECT_EQ(denial.limit, asked.limit);
    EXPECT_EQ(denial.ownerName, asked.reason == Fault::owned ? "owner" : "");
    EXPECT_EQ(denial.batch, asked.actuator == 3 ? 0U : 1U);
    EXPECT_EQ(engine.axes()[3].counts.left(), before.left());
  }
}

}  // namespace
