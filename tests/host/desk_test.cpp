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

constexpr std::int64_t cycleMs = 10;
constexpr int axes = 4;

host::MachineModel fourAxes() {
  host::MachineModel machine;
  for (int i = 0; i < axes; ++i) {
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
  explicit ManyCommanders(unsigned seed) : random_(seed), engine_(machine_, {"", ".", cycleMs}) {
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
    for (int i = 0; i < axes; ++i) {
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
  bool owns(CommanderId id, const std::vector<int>& some) {
    return (id == 0 || known_.count(id) > 0) &&
           std::all_of(some.begin(), some.end(), [&](int i) { return axes_[i].owner == id; });
  }

  void ask() {
    host::Desk& desk = engine_.desk();
    const std::vector<int> some = someAxes();
    const CommanderId id = somebody();
    ++asked_;
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
        desk.resign(id, expecting(known_.count(id) > 0, "resign"));
        for (const auto& [number, axis] : axes_) {
          if (id != 0 && axis.owner == id && known_[id].stops) {
            cleared_.push_back(number);
          }
        }
        forget(id);
        break;
      case 6:
        desk.renew(id, expecting(known_.count(id) > 0, "renew"));
        renew(id);
        break;
      default:
        request(id);
    }
    // One at a time, so that the model needs no order.
    engine_.pass(clockMs_);
    for (const int i : std::exchange(cleared_, {})) {
      EXPECT_EQ(engine_.axes()[static_cast<std::size_t>(i)].counts.left(), 0U) << i;
    }
    noteMoving();
  }

  /// Ramps take 250 ms, and begin a cycle later at most.
  void noteMoving() {
    for (auto& [number, axis] : axes_) {
      if (engine_.axes()[static_cast<std::size_t>(number)].counts.left() > 0) {
        axis.movedBy = engine_.timeMs() + 250 + 2 * cycleMs;
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
      isTaken = isTaken && owns(id, batch->actuators) &&
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
    clockMs_ += cycleMs;
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
    for (int i = 0; i < axes; ++i) {
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

}  // namespace
