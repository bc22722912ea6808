#pragma once

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "host/engine/torvex.h"
#include "host/motion/rehearsal.h"
#include "tests/support/random.h"

/// Writes down what becomes of each point, and what is to be said of it.
class Diary : public host::Listener {
 public:
  Diary(const host::MachineModel& machine, const host::Plan& plan)
      : machine_(machine), plan_(plan) {}

  static constexpr std::int64_t untold = std::numeric_limits<std::int64_t>::min();

  /// Kind, actuator, batch, point.
  using Key = std::tuple<host::EventKind, int, std::uint32_t, std::uint32_t>;
  struct Entry {
    std::int64_t timeMs = 0;
    std::uint64_t count = 0;
    std::uint32_t byBatch = 0;
    host::Fault reason = host::Fault::none;
    double amount = 0.0;
    int told = 0;

    /// But for the amount.
    [[nodiscard]] bool agreesWith(const Entry& other) const {
      return (timeMs == other.timeMs || timeMs == untold || other.timeMs == untold) &&
             std::tie(count, byBatch, reason, told) ==
                 std::tie(other.count, other.byBatch, other.reason, other.told);
    }
  };

  void tell(const host::Event& event, const host::Point* points) override {
    const bool perPoint = event.kind == host::EventKind::taken ||
                          event.kind == host::EventKind::reached ||
                          event.kind == host::EventKind::cleared;
    const std::uint64_t round = event.rounds > 1 ? event.roundStep * sizeOfRound(event.batch) : 0;
    for (std::uint64_t i = 0; i < (perPoint ? event.count : event.rounds); ++i) {
      const auto point = static_cast<std::uint32_t>(event.point + i * (perPoint ? 1 : round));
      Entry& entry = entries_[{event.kind, event.actuator, event.batch, point}];
      // When it is seen what a segment was like depends on when one looks; of rounds that are
      // counted together the cycle of the last point alone is told.
      const bool reached = event.kind == host::EventKind::reached;
      entry.timeMs =
          isOfSegment(event.kind) || (reached && points == nullptr) ? untold : event.timeMs;
      entry.count = perPoint ? 1 : event.count;
      entry.byBatch = event.byBatch;
      entry.reason = event.reason;
      // Of several about one point, the worst.
      const bool isJudged = isOfSegment(event.kind);
      entry.amount = isJudged ? std::max(entry.amount, event.amount) : event.amount;
      entry.told += isJudged ? 0 : 1;
    }
  }

  /// What one of two knows otherwise; empty when they agree.
  [[nodiscard]] std::string differenceTo(const Diary& other) const {
    const std::string missing = missingIn(other);
    return missing.empty() ? other.missingIn(*this) : missing;
  }

 private:
  [[nodiscard]] std::uint64_t sizeOfRound(std::uint32_t batch) const {
    const host::CommandBatch& commands = *plan_.batches[batch].commands;
    return (commands.size() - commands.times.size()) / (commands.repeat - 1);
  }
  static bool isOfSegment(host::EventKind kind) {
    return kind == host::EventKind::steep || kind == host::EventKind::abrupt ||
           kind == host::EventKind::beyond;
  }
  /// By which amounts may differ. Values agree to 1e-5 or two units in the last place: over a
  /// millisecond, the speeds, which a curve or a stop goes on with.
  static double doubtOf(const Key& key, const Entry& entry) {
    return isOfSegment(std::get<0>(key)) ? 3e-4 * std::abs(entry.amount) + 0.02 : 0.0;
  }
  [[nodiscard]] bool isNearLimit(const Key& key, const Entry& entry) const {
    const simulation::Actuator& actuator = machine_.actuator(std::get<1>(key));
    const double doubt = doubtOf(key, entry);
    return std::get<0>(key) == host::EventKind::steep
               ? entry.amount - doubt <= actuator.maximumVelocity
               : std::get<0>(key) == host::EventKind::beyond &&
                     entry.amount - doubt <= actuator.maximum &&
                     entry.amount + doubt >= actuator.minimum;
  }
  static std::string shown(const Entry& entry) {
    return fmt::format("at {} ms, count {}, by {}, amount {}", entry.timeMs, entry.count,
                       entry.byBatch, entry.amount);
  }

  [[nodiscard]] std::string missingIn(const Diary& other) const {
    for (const auto& [key, entry] : entries_) {
      const auto [kind, actuator, batch, point] = key;
      const std::string where =
          fmt::format("kind {} actuator {} batch {} point {}: {}", static_cast<int>(kind), actuator,
                      batch, point, shown(entry));
      const auto found = other.entries_.find(key);
      if (found == other.entries_.end()) {
        if (!isNearLimit(key, entry)) {
          return where + ", told by one alone";
        }
      } else if (!entry.agreesWith(found->second) ||
                 !(std::abs(entry.amount - found->second.amount) <= doubtOf(key, entry))) {
        return where + "; by the other " + shown(found->second);
      }
    }
    return "";
  }

  const host::MachineModel& machine_;
  const host::Plan& plan_;
  std::map<Key, Entry> entries_;
};

inline std::string shownCounts(const host::PointCounts& counts) {
  return fmt::format("points {} reached {} cleared {} refused {} late {} limited {} left {}",
                     counts.points, counts.reached, counts.cleared, counts.refused, counts.late,
                     counts.limited, counts.left());
}

/// Adds up what the guard tells.
struct Touches : host::Listener {
  void tell(const host::Event& event, const host::Point* /*points*/) override {
    counts[event.actuator] += event.kind == host::EventKind::guarded ? event.count : 0;
  }
  std::map<int, std::uint64_t> counts;
};

/// Which register moved further in a cycle than it may; empty when none did.
inline std::string stepFault(const host::Engine& engine, const std::vector<float>& before,
                             double stepMs) {
  for (const host::Axis& axis : engine.axes()) {
    const float from = before[static_cast<std::size_t>(axis.index)];
    const float to = axis.command->loadFloat();
    const double allowed = axis.velocityLimit / 1000.0 * stepMs;
    const double ulp = double{std::nextafter(std::max(std::abs(from), std::abs(to)), 1e9F)} -
                       double{std::max(std::abs(from), std::abs(to))};
    if (axis.actuator.interpolates && stepMs > 0.0 &&
        !(std::abs(double{to} - double{from}) <= allowed * 1.0001 + 2.0 * ulp)) {
      return fmt::format("{} from {} to {} in {} ms", axis.actuator.name, from, to, stepMs);
    }
  }
  return "";
}

/// Runs a plan under the guard, with hand-overs in time, or with stalls, late command threads and
/// what others write: what is wrong; empty when no step is too large, and the guard told of all
/// that it touched.
inline std::string guardFault(const host::MachineModel& machine, const host::Plan& plan,
                              bool inTime, Random& random) {
  host::Engine engine(machine, plan.schedule.cycleMs);
  Touches told;
  engine.addListener(told);
  for (const host::ScheduledBatch& batch : plan.batches) {
    engine.submit(batch);
  }
  engine.start();
  std::int64_t clock = 0;
  for (int cycle = 0; cycle < 3000 && !engine.isIdle(); ++cycle) {
    const bool calm = inTime || cycle > 2000;
    if (!calm && machine.actuator(0).interpolates && random.chance(2)) {
      engine.machine().moveFromOutside(0, static_cast<float>(random.between(-1.5, 1.0)));
    }
    engine.wake(clock);
    clock += calm || random.chance(90) ? 1 : 1 + random.below(8);
    while (inTime && !engine.canGoOn()) {
      engine.pass();
    }
    std::vector<float> before;
    for (const host::Axis& axis : engine.axes()) {
      before.push_back(axis.command->loadFloat());
    }
    const auto stepMs = static_cast<double>(engine.goOn());
    if (std::string fault = stepFault(engine, before, stepMs); !fault.empty()) {
      return fault;
    }
    if (calm || random.chance(60)) {
      engine.pass();
    }
  }
  for (const host::Axis& axis : engine.axes()) {
    if (axis.guard.touches != told.counts[axis.index] || (inTime && axis.guard.touches > 0)) {
      return fmt::format("{} touched {} times, {} told, the first at {} ms", axis.actuator.name,
                         axis.guard.touches, told.counts[axis.index], axis.guard.heldSinceMs);
    }
  }
  return "";
}

/// Rehearses a plan, and runs it on the simulated clock: what the two tell differently, or
/// what is left; empty when all is well.
inline std::string disagreement(const host::MachineModel& machine, const host::Plan& plan,
                                const host::SessionOptions& options) {
  Diary rehearsed(machine, plan), run(machine, plan);
  const std::vector<host::PointCounts> counts = host::rehearse(machine, plan, rehearsed);
  Torvex torvex(machine, plan, options);
  torvex.addListener(run);
  const std::int64_t cycleMs = plan.schedule.cycleMs;
  const std::int64_t endMs = std::min<std::int64_t>(host::lastDueMs(plan), 3000);
  const auto paths = host::commandedPaths(machine, plan, {cycleMs, endMs});
  std::string stray;
  torvex.run([&](std::int64_t timeMs) {
    for (const host::Axis& axis : torvex.engine().axes()) {
      const auto& path = paths[static_cast<std::size_t>(axis.index)];
      const auto cycle = static_cast<std::size_t>(timeMs / cycleMs);
      const double ran = host::numberIn(*axis.command);
      if (timeMs <= endMs && std::abs(ran - double{path[cycle]}) > 2e-5 + 5e-7 * std::abs(ran)) {
        stray = fmt::format("{} at {} ms: {}, rehearsed {}", axis.actuator.name, timeMs, ran,
                            path[cycle]);
      }
    }
  });
  if (!stray.empty()) {
    return stray;
  }
  for (const host::Axis& axis : torvex.engine().axes()) {
    const std::string ran = shownCounts(axis.counts);
    const std::string expected = shownCounts(counts[static_cast<std::size_t>(axis.index)]);
    if (ran != expected || axis.counts.left() != 0) {
      return fmt::format("{}: {}, rehearsed {}", axis.actuator.name, ran, expected);
    }
  }
  return rehearsed.differenceTo(run);
}
