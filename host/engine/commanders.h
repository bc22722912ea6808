#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "host/engine/request.h"

namespace host {

/// Who owns which axis, and whose lease has run out: rules alone. Times are those of the clock
/// that leases count, in milliseconds.
class Commanders {
 public:
  struct Commander {
    CommanderId id = nobody;
    /// With the axes that it owns now.
    Enrolment enrolment;
    std::int64_t renewedMs = 0;
  };
  /// An axis and who owns it, or owned it.
  struct Owned {
    int actuator = -1;
    CommanderId owner = nobody;
  };

  explicit Commanders(std::size_t axes) : owners_(axes, nobody) {}

  [[nodiscard]] CommanderId ownerOf(int actuator) const {
    return owners_[static_cast<std::size_t>(actuator)];
  }
  /// Null when there is none.
  [[nodiscard]] const Commander* find(CommanderId id) const;
  /// By their numbers.
  [[nodiscard]] const std::map<CommanderId, Commander>& all() const { return commanders_; }

  /// The first axis whose owner has the same or a higher priority; none when nobody is in the way.
  [[nodiscard]] std::optional<Owned> obstacleTo(const Enrolment& enrolment) const;
  /// Registers one that has no obstacle. Adds to `losses` the axes that others lose.
  CommanderId enrol(Enrolment enrolment, std::int64_t nowMs, std::vector<Owned>& losses);
  /// The lease begins anew, of this length from now on if one is given. False when there is no such
  /// commander.
  bool renew(CommanderId id, std::int64_t nowMs, std::optional<std::int64_t> leaseMs = {});
  /// Frees the axes of a commander that there is.
  Commander remove(CommanderId id);
  [[nodiscard]] bool hasLeases() const;
  /// Those who gave no sign of life for as long as their leases.
  [[nodiscard]] std::vector<CommanderId> expired(std::int64_t nowMs) const;

 private:
  std::map<CommanderId, Commander> commanders_;
  std::vector<CommanderId> owners_;
  CommanderId latest_ = nobody;
};

/// Says when leases may be judged: after the process was held up, not before what came meanwhile
/// was read.
class LeaseClock {
 public:
  /// Nobody is waited for any longer.
  static constexpr std::int64_t longestWaitMs = 100;

  /// Looks come every cycle.
  explicit LeaseClock(std::int64_t cycleMs) : stallMs_(std::max<std::int64_t>(30, 3 * cycleMs)) {}

  /// It is so late, and after that stall all was read. Whether leases may be judged now.
  bool advance(std::int64_t nowMs, std::uint64_t readStall);
  /// The number of the latest stall, from 1 on.
  [[nodiscard]] std::uint64_t stall() const { return stall_; }

 private:
  /// More time than this between two looks is a stall.
  const std::int64_t stallMs_;
  std::optional<std::int64_t> latestMs_;
  std::int64_t stalledUntilMs_ = 0;
  std::uint64_t stall_ = 0;
};

}  // namespace host
