#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace host {

/// A machine's time on the fleet's clock.
struct FleetClock {
  /// Where machine time is 0, and how far off that may be, in nanoseconds.
  std::int64_t zeroNs = 0;
  std::int64_t boundNs = 0;
  std::int64_t cycleMs = 1;

  [[nodiscard]] std::int64_t readingAt(std::int64_t machineMs) const {
    return zeroNs + machineMs * 1'000'000;
  }
};

/// A moment at which several machines begin something.
struct CommonStart {
  /// On the fleet's clock, in nanoseconds.
  std::int64_t startNs = 0;
  /// The same in the time of each machine, in whole milliseconds.
  std::vector<std::int64_t> atMs;
  /// How far apart the first cycles from there on may be at most.
  std::int64_t apartNs = 0;
};

/// How far apart the first cycles at or after these moments may be at most, in nanoseconds: what
/// the grids of the cycles make of it, and what is not known of the clocks.
std::int64_t apartNs(const std::vector<FleetClock>& clocks, const std::vector<std::int64_t>& atMs);

/// The moment at which these machines are least apart, within the longest of their cycles from
/// `earliestNs` on: cycles of equal length keep their distance, and the best moment lies where the
/// gap between them is widest. At least one machine.
CommonStart findCommonStart(const std::vector<FleetClock>& clocks, std::int64_t earliestNs);

/// How long a machine may be silent before a start, in nanoseconds: a command takes it up to two
/// cycles.
std::int64_t mostSilentNs(const FleetClock& clock);
/// How long before the start it can be cancelled for the last time, so that all machines know
/// before it.
std::int64_t startGuardNs(const std::vector<FleetClock>& clocks);
/// How long before the start each machine is asked whether it begins: it answers before the guard,
/// or the start is cancelled.
std::int64_t lastCallNs(const std::vector<FleetClock>& clocks);
/// The lease of a machine that was not told yet to begin, so long before its moment, in
/// nanoseconds: it ends before the moment, and before the silence of the machine is noticed.
std::int64_t leaseBeforeStartNs(const FleetClock& clock, std::int64_t leftNs);

std::int64_t longestCycleNs(const std::vector<FleetClock>& clocks);
/// The number of the machine whose clock is known least.
std::size_t leastKnown(const std::vector<FleetClock>& clocks);

}  // namespace host
