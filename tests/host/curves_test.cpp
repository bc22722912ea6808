// Curved segments: shapes against their closed forms, and the cycles of a run against both.

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/engine/engine.h"
#include "host/motion/intake.h"
#include "host/motion/limits.h"
#include "host/motion/segment.h"
#include "host/motion/stop.h"
#include "tests/host/batches.h"

namespace {

using host::Knot;
using host::Shape;

struct State {
  std::int64_t timeMs = 0;
  double value = 0.0, velocity = 0.0, acceleration = 0.0;
};

/// The textbook's polynomials in the time from the start.
double closedForm(const State& from, const State& to, bool isQuintic, double timeMs) {
  const double T = static_cast<double>(to.timeMs - from.timeMs) / 1000.0;
  const double t = (timeMs - static_cast<double>(from.timeMs)) / 1000.0;
  const double d = to.value - from.value, v0 = from.velocity, v1 = to.velocity;
  if (!isQuintic) {
    return from.value + v0 * t + (3 * d / (T * T) - (2 * v0 + v1) / T) * t * t +
           (-2 * d / (T * T * T) + (v0 + v1) / (T * T)) * t * t * t;
  }
  const double a0 = from.acceleration, a1 = to.acceleration;
  const double c3 = (20 * d - (8 * v1 + 12 * v0) * T - (3 * a0 - a1) * T * T) / 2;
  const double c4 = (-30 * d + (14 * v1 + 16 * v0) * T + (3 * a0 - 2 * a1) * T * T) / 2;
  const double c5 = (12 * d - 6 * (v1 + v0) * T + (a1 - a0) * T * T) / 2;
  const double s = t / T;
  return from.value + v0 * t + a0 / 2 * t * t + s * s * s * (c3 + s * (c4 + s * c5));
}

double within(Random& random, double most) {
  return (random.below(20001) / 10000.0 - 1.0) * most;
}

State randomState(Random& random, std::int64_t timeMs) {
  const auto single = [&](double most) { return double{static_cast<float>(within(random, most))}; };
  return {timeMs, single(2.5), single(2.0), single(6.0)};
}

Knot knotOf(const State& state, bool isQuintic) {
  return {isQuintic ? Shape::quintic : Shape::cubic,
          isQuintic ? Knot::Known::acceleration : Knot::Known::velocity,
          static_cast<float>(state.velocity), static_cast<float>(state.acceleration)};
}

host::Point pointOf(const State& state) {
  return {state.timeMs, hal::AttrGeneric(static_cast<float>(state.value))};
}

TEST(Segment, RunsAsItsClosedForm) {
  Random random(1);
  for (int round = 0; round < 2000; ++round) {
    const bool isQuintic = round % 2 == 0;
    const State from = randomState(random, 100), to = randomState(random, 101 + random.below(3000));
    const host::Segment segment(host::startAt(pointOf(from), knotOf(from, isQuintic), from.timeMs),
                                pointOf(to), knotOf(to, isQuintic));
    const std::int64_t untilMs = from.timeMs + 1 + random.below(3000);
    const std::int64_t endMs = std::min(untilMs, to.timeMs);
    double low = HUGE_VAL, high = -HUGE_VAL, fastest = 0.0;
    const double step = static_cast<double>(endMs - from.timeMs) / 300.0;
    for (int i = 0; i <= 300; ++i) {
      const double timeMs = static_cast<double>(from.timeMs) + i * step;
      const double value = closedForm(from, to, isQuintic, timeMs);
      const double next = closedForm(from, to, isQuintic, timeMs + 1e-3);
      low = std::min(low, value);
      high = std::max(high, value);
      fastest = std::max(fastest, std::abs(next - value) * 1e6);
    }
    const std::int64_t middleMs = (100 + endMs) / 2;
    const double middle = closedForm(from, to, isQuintic, static_cast<double>(middleMs));
    ASSERT_NEAR(segment.valueAt(middleMs), middle, 1e-9);
    const double coarse = 1e-3 * (1.0 + high - low);
    ASSERT_NEAR(segment.lowest(endMs).amount, low, coarse);
    ASSERT_NEAR(segment.highest(endMs).amount, high, coarse);
    ASSERT_NEAR(segment.fastest(endMs).amount, fastest, 1e-2 * (1.0 + fastest)) << round;
    ASSERT_LE(high, segment.largestMagnitude() + 1e-12);
  }
}

TEST(Smooth, OvershootsNowhere) {
  Random random(2);
  for (int round = 0; round < 10'000; ++round) {
    std::vector<host::Point> points;
    std::int64_t timeMs = 0;
    for (std::uint32_t i = 0; i < 2 + random.below(7); ++i) {
      timeMs += 1 + random.below(random.chance(50) ? 20 : 900);
      points.push_back(pointOf({timeMs, random.chance(20) ? 1.0 : within(random, 2.0)}));
      points.back().index = i;
    }
    std::vector<Knot> knots(points.size());
    host::addSlopes(points, random.chance(50), knots);
    ASSERT_EQ(knots.back().velocity, 0.0F);
    for (std::size_t i = 1; i < points.size(); ++i) {
      const host::SegmentStart start =
          host::startAt(points[i - 1], knots[i - 1], points[i - 1].timeMs);
      const host::Segment segment(start, points[i], knots[i]);
      const bool rises = start.value <= double{points[i].value.asFloat};
      float before = points[i - 1].value.asFloat;
      const std::int64_t stepMs = 1 + (points[i].timeMs - start.timeMs) / 40;
      for (std::int64_t at = start.timeMs; at <= points[i].timeMs; at += stepMs) {
        const auto value = static_cast<float>(segment.valueAt(at));
        ASSERT_TRUE(rises ? value >= before : value <= before) << "round " << round;
        before = value;
      }
      const float end = points[i].value.asFloat;
      ASSERT_TRUE(rises ? before <= end : before >= end) << "round " << round;
    }
  }
}

/// Where the axis has gone farthest in this direction before it rests or turns, and at least how
/// far on it goes.
double ownRest(const host::Moving& axis, double direction, double& goesOn) {
  double farthest = axis.present.value;
  host::SegmentStart start = axis.start;
  for (std::size_t i = 0; i < axis.backlog.size(); ++i) {
    const host::Point& end = axis.backlog[i];
    const Knot knot = axis.backlog.knotOf(end);
    const host::Segment segment(start, end, knot);
    for (std::int64_t ms = std::max(start.timeMs, axis.present.timeMs) + 1; ms <= end.timeMs;
         ++ms) {
      goesOn = farthest;
      if ((segment.valueAt(ms) - farthest) * direction <= 1e-12) {
        return farthest;
      }
      farthest = segment.valueAt(ms);
    }
    if (knot.known != Knot::Known::nothing && knot.velocity * direction <= 0.0) {
      return farthest;
    }
    start = host::startAt(end, knot, axis.present.timeMs);
  }
  return farthest;
}

TEST(Stop, DeceleratesAsItMayAndGoesNotBeyondItsOwnPath) {
  Random random(4);
  int unhindered = 0;
  for (int round = 0; round < 1000; ++round) {
    simulation::Actuator actuator;
    actuator.minimum = -within(random, 1.0) - 2.0;
    actuator.maximum = 2.5;
    std::vector<host::Point> points;
    std::vector<Knot> knots;
    std::int64_t timeMs = 0;
    for (std::uint32_t i = 0; i < 6; ++i) {
      const State state = randomState(random, timeMs += 600 + random.below(3000));
      points.push_back(pointOf(state));
      points.back().index = i;
      points.back().value = host::limited(actuator, points.back().value);
      knots.push_back(random.chance(30) ? Knot() : knotOf(state, random.chance(50)));
    }
    if (random.chance(50)) {
      host::addSlopes(points, true, knots);
    }
    host::Backlog backlog;
    backlog.take(points, TimedCommand::REPLACE, std::make_shared<host::Curve>(knots, 0, false));
    const host::SegmentStart start = host::restingAt(0, within(random, 1.0));
    const std::int64_t nowMs = 1 + random.below(600), stepMs = 1 + random.below(10);
    const host::Segment first(start, points[0], knots[0]);
    const double now = first.valueAt(nowMs), before = first.valueAt(std::max(nowMs - stepMs, 0L));
    const host::SegmentStart present = host::movingAt(nowMs, now, now - before, stepMs);
    const double given = random.chance(50) ? HUGE_VAL : random.between(0.5, 20.0);
    const host::Moving moving{actuator, given, backlog, start, present};
    const std::optional<host::Point> rest = host::stopPoint(moving, 7);
    const double speed = std::abs(present.velocity);
    const double direction = present.velocity < 0 ? -1.0 : 1.0;
    double sure = now;
    const double limit = direction > 0 ? actuator.maximum : -actuator.minimum;
    const double room =
        std::min(limit, direction * ownRest(moving, direction, sure)) - direction * now;
    const double seconds = std::isfinite(given) ? speed / given : 0.25;
    const double wanted = speed * seconds / 2.0;
    const double went = rest ? direction * (double{rest->value.asFloat} - now) : 0.0;
    ASSERT_LE(went, std::max(room, 0.0) + 2e-5) << round;
    ASSERT_NEAR(went, std::clamp(room, 0.0, wanted), 0.001 * speed + 2e-5) << round;
    if (went < 1e-4) {
      continue;  // no more than rounding
    }
    const host::Segment ramp(present, *rest, host::stopCurve()->at(0));
    const bool isFree = wanted < room;
    unhindered += isFree ? 1 : 0;
    const double took = static_cast<double>(rest->timeMs - nowMs) / 1000.0;
    const double most = speed / (isFree ? seconds : 2.0 * went / speed);
    EXPECT_LE(ramp.largestAcceleration(), 1.01 * most + 1e-4) << round;
    backlog.take(std::vector{*rest}, TimedCommand::REPLACE, host::stopCurve());
    backlog.take(std::vector<host::Point>(), static_cast<TimedCommand::commandType>(round % 4 + 1));
    EXPECT_TRUE(backlog.isStopping()) << "no points, no other way";
    EXPECT_LE(took, std::min(seconds, 2.0 * room / speed) + 0.001) << round;
    EXPECT_LE(direction * ramp.highest(rest->timeMs).amount, direction * now + went + 1e-6);
  }
  EXPECT_GT(unhindered, 300);
}

/// An axis in simulated cycles, beside what it should do.
class CurvedRun {
 public:
  CurvedRun(Random& random, std::int64_t cycleMs)
      : random_(random), cycleMs_(cycleMs), engine_(machine_, cycleMs) {}

  /// The command thread comes every 50 ms at first, then each cycle.
  void run() {
    takeOver({0, 0.0, 0.0, 0.0}, 0);
    engine_.start();
    for (std::int64_t clock = 0; !states_.empty() && !testing::Test::HasFatalFailure(); ++clock) {
      engine_.wake(clock);
      ASSERT_TRUE(engine_.canGoOn()) << "at " << clock * cycleMs_ << " ms nothing is handed over";
      engine_.goOn();
      compare();
      if (isReplaced_ || clock * cycleMs_ % 50 == 0) {
        engine_.pass();
      }
      if (!isReplaced_ && engine_.timeMs() > 1000 && random_.chance(2)) {
        replace();
      }
    }
  }

 private:
  /// In motion, or from rest after others have written.
  void replace() {
    isReplaced_ = true;
    const std::int64_t nowMs = engine_.timeMs();
    const bool isWritten = random_.chance(30);
    if (isWritten) {
      engine_.machine().moveFromOutside(0, static_cast<float>(within(random_, 2.0)));
    }
    const double value = engine_.axes()[0].commanded();
    const double velocity = (value - before_) * 1000.0 / static_cast<double>(cycleMs_);
    takeOver(isWritten ? State{nowMs + cycleMs_, value} : State{nowMs, value, velocity},
             nowMs + cycleMs_);
    engine_.pass();
  }

  /// Of a random batch, whose first segment begins so.
  void takeOver(const State& start, std::int64_t fromMs) {
    auto motion = std::make_shared<host::CommandBatch>();
    motion->mode = TimedCommand::REPLACE;
    motion->actuators = {0};
    isQuintic_ = random_.chance(50);
    states_ = {start};
    std::int64_t timeMs = fromMs;
    for (std::uint32_t i = 3 + random_.below(5); i > 0; --i) {
      timeMs += 20 + random_.below(random_.chance(70) ? 400 : 3000);
      const State state = randomState(random_, timeMs);
      states_.push_back(state);
      motion->times.push_back(static_cast<std::uint32_t>(timeMs - fromMs));
      motion->locations.emplace_back();
      motion->values.push_back(pointOf(state).value);
      motion->velocities.push_back(static_cast<float>(state.velocity));
      if (isQuintic_) {
        motion->accelerations.push_back(static_cast<float>(state.acceleration));
      }
    }
    ASSERT_TRUE(engine_.submit({motion, std::nullopt, fromMs}));
  }

  void compare() {
    const std::int64_t timeMs = engine_.timeMs();
    while (states_.size() > 1 && states_[1].timeMs < timeMs) {
      states_.erase(states_.begin());
    }
    if (states_.size() < 2) {
      states_.clear();
      return;
    }
    const double value = engine_.axes()[0].commanded();
    if (timeMs >= states_[0].timeMs) {
      const double expected =
          closedForm(states_[0], states_[1], isQuintic_, static_cast<double>(timeMs));
      ASSERT_NEAR(value, expected, 1e-5 * std::max(1.0, std::abs(expected) / 4.0))
          << "at " << timeMs << " ms, cycle " << cycleMs_;
    }
    before_ = std::exchange(latest_, value);
  }

  Random& random_;
  const std::int64_t cycleMs_;
  const host::MachineModel machine_ = oneAxis();
  host::Engine engine_;
  std::vector<State> states_;
  bool isQuintic_ = false, isReplaced_ = false;
  /// What the register held after the latest cycle, and after the one before.
  double latest_ = 0.0, before_ = 0.0;
};

TEST(Curves, HoldInEachCycleHoweverLateCommandsAre) {
  Random random(3);
  for (int round = 0; round < 40 && !HasFatalFailure(); ++round) {
    CurvedRun(random, round % 2 == 0 ? 1 : 10).run();
  }
}

/// What is to come, as the rules of the modes have it, and what became of the rest.
struct PlainModel {
  NaiveTimeline waiting;
  std::vector<std::string> diary;

  void note(const char* what, std::int64_t timeMs, const host::Point& point) {
    diary.push_back(fmt::format("{} {} {} {}", what, timeMs, point.batch, point.index));
  }
  /// The last point that the cycle reached.
  std::optional<host::Point> cycle(std::int64_t timeMs) {
    std::vector<host::Point>& points = waiting.points;
    std::optional<host::Point> last;
    while (!points.empty() && points.front().timeMs <= timeMs &&
           !(last && last->timeMs == timeMs)) {
      last = points.front();
      note("reached", timeMs, *last);
      points.erase(points.begin());
    }
    return last;
  }
};

/// The same diary, by the engine's events.
class Diarist : public host::Listener {
 public:
  void tell(const host::Event& event, const host::Point* points) override {
    const bool isReached = event.kind == host::EventKind::reached;
    if (isReached || event.kind == host::EventKind::cleared) {
      for (std::uint64_t i = 0; i < event.count; ++i) {
        model.note(isReached ? "reached" : "cleared", event.timeMs, points[i]);
      }
    }
  }
  PlainModel model;
};

TEST(Curves, AreClearedByPointsNeverBySamples) {
  const auto rounds = fromEnvironment("TORVEX_ROUNDS", 2000);
  for (unsigned long seed = 1; seed <= rounds && !HasFailure(); ++seed) {
    Random random(static_cast<unsigned>(seed));
    const host::MachineModel machine = oneAxis();
    const std::int64_t cycleMs = 1 + random.below(12);
    host::Engine engine(machine, cycleMs);
    Diarist told;
    engine.addListener(told);
    engine.start();
    PlainModel model;
    std::uint32_t batches = 0;
    for (std::int64_t clock = 0; clock < 60 || !engine.isIdle(); ++clock) {
      if (clock < 60 && random.chance(15)) {
        const std::int64_t nowMs = engine.timeMs();
        auto commands =
            std::make_shared<host::CommandBatch>(randomBatch(random, machine, 9, 90, 0));
        host::ScheduledBatch batch{commands, std::nullopt, nowMs - 20 + random.below(60)};
        if (random.chance(40)) {
          batch.interpolation = host::Interpolation::smooth;
        } else {
          bend(*commands, random);
        }
        const host::Intake intake{batch, batches, 0, machine.actuator(0), nowMs, cycleMs};
        for (const host::Point& point :
             model.waiting.push(intake.points().first(), commands->mode)) {
          model.note("cleared", nowMs, point);
        }
        ASSERT_EQ(engine.submit(batch), batches++);
      }
      engine.pass();
      engine.wake(clock);
      engine.goOn();
      const std::optional<host::Point> last = model.cycle(engine.timeMs());
      if (last && last->timeMs == engine.timeMs()) {
        ASSERT_EQ(engine.axes()[0].commanded(), last->value.asFloat) << "seed " << seed;
      }
      engine.pass();
    }
    ASSERT_EQ(told.model.diary, model.diary) << "seed " << seed;
  }
}

}  // namespace
