#pragma once

#include <fmt/format.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "host/engine/torvex.h"
#include "host/motion/rehearsal.h"

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

/// Rehearses a plan, and runs it on the simulated clock: what the two tell differently, or
/// what is left; empty when all is well.
inline std::string disagreement(const host::MachineModel& machine, const host::Plan& plan,
                                const host::SessionOptions& options) {
  Diary rehearsed(machine, plan), run(machine, plan);
  const std::vector<host::PointCounts> counts = host::rehearse(machine, plan, rehearsed);
  Torvex torvex(machine, plan, options);
  torvex.addListener(run);
  torvex.run([](std::int64_t) {});
  for (const host::Axis& axis : torvex.engine().axes()) {
    const std::string ran = shownCounts(axis.counts);
    const std::string expected = shownCounts(counts[static_cast<std::size_t>(axis.index)]);
    if (ran != expected || axis.counts.left() != 0) {
      return fmt::format("{}: {}, rehearsed {}", axis.actuator.name, ran, expected);
    }
  }
  return rehearsed.differenceTo(run);
}
