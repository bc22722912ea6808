#include "host/cli/fleet/commonstart.h"

#include <algorithm>
#include <limits>

namespace host {
namespace {

constexpr std::int64_t nsPerTick = 1'000'000;

/// Rounds down, also below 0.
std::int64_t floorDivided(std::int64_t number, std::int64_t divisor) {
  return number / divisor - (number % divisor < 0 ? 1 : 0);
}

/// The highest and the second highest of some numbers, and which was the highest.
struct HighestTwo {
  std::int64_t first = std::numeric_limits<std::int64_t>::min();
  std::int64_t second = std::numeric_limits<std::int64_t>::min();
  std::size_t number = 0;

  void add(std::int64_t value, std::size_t ofNumber) {
    if (value > first) {
      second = first;
      first = value;
      number = ofNumber;
    } else {
      second = std::max(second, value);
    }
  }
};

}  // namespace

std::int64_t apartNs(const std::vector<FleetClock>& clocks, const std::vector<std::int64_t>& atMs) {
  if (clocks.size() < 2) {
    return 0;
  }
  HighestTwo latest;
  HighestTwo earliest;
  for (std::size_t i = 0; i < clocks.size(); ++i) {
    const FleetClock& clock = clocks[i];
    const std::int64_t firstMs = -floorDivided(-atMs[i], clock.cycleMs) * clock.cycleMs;
    latest.add(clock.readingAt(firstMs) + clock.boundNs, i);
    earliest.add(clock.boundNs - clock.readingAt(firstMs), i);
  }
  // A machine is never apart from itself.
  return latest.number != earliest.number
             ? latest.first + earliest.first
             : std::max(latest.first + earliest.second, latest.second + earliest.first);
}

CommonStart findCommonStart(const std::vector<FleetClock>& clocks, std::int64_t earliestNs) {
  constexpr std::int64_t tries = 128;
  const std::int64_t stepNs = std::max<std::int64_t>(longestCycleNs(clocks) / tries, 1);
  CommonStart best;
  for (std::int64_t i = 0; i < tries; ++i) {
    CommonStart start;
    start.startNs = earliestNs + i * stepNs;
    for (const FleetClock& clock : clocks) {
      start.atMs.push_back(floorDivided(start.startNs - clock.zeroNs + nsPerTick / 2, nsPerTick));
    }
    start.apartNs = apartNs(clocks, start.atMs);
    if (i == 0 || start.apartNs < best.apartNs) {
      best = std::move(start);
    }
  }
  return best;
}

std::int64_t mostSilentNs(const FleetClock& clock) {
  constexpr std::int64_t silentNs = 250'000'000;
  return silentNs + 2 * clock.cycleMs * nsPerTick + 4 * clock.boundNs;
}

std::int64_t startGuardNs(const std::vector<FleetClock>& clocks) {
  constexpr std::int64_t cyclesToTake = 4;
  // A turn here, a turn of the member, and a connection.
  constexpr std::int64_t reactionNs = 20'000'000;
  // The bound is half of the way there and back.
  return cyclesToTake * longestCycleNs(clocks) + 4 * clocks[leastKnown(clocks)].boundNs +
         reactionNs;
}

std::int64_t lastCallNs(const std::vector<FleetClock>& clocks) {
  constexpr std::int64_t cyclesToAnswer = 2;
  // A thread here or there may wait for its turn.
  constexpr std::int64_t waitNs = 60'000'000;
  return startGuardNs(clocks) + cyclesToAnswer * longestCycleNs(clocks) +
         4 * clocks[leastKnown(clocks)].boundNs + waitNs;
}

std::int64_t leaseBeforeStartNs(const FleetClock& clock, std::int64_t leftNs) {
  // Taken by one cycle, over in another one, and cleared before the next one.
  constexpr std::int64_t cyclesToEnd = 3;
  constexpr std::int64_t reactionNs = 5'000'000;
  constexpr std::int64_t sparedNs = 50'000'000;
  const std::int64_t beforeNs =
      leftNs - cyclesToEnd * clock.cycleMs * nsPerTick - 2 * clock.boundNs - reactionNs;
  return std::min(mostSilentNs(clock) - sparedNs, beforeNs);
}

std::int64_t longestCycleNs(const std::vector<FleetClock>& clocks) {
  std::int64_t longestMs = 0;
  for (const FleetClock& clock : clocks) {
    longestMs = std::max(longestMs, clock.cycleMs);
  }
  return longestMs * nsPerTick;
}

std::size_t leastKnown(const std::vector<FleetClock>& clocks) {
  return static_cast<std::size_t>(
      std::max_element(clocks.begin(), clocks.end(),
                       [](const FleetClock& one, const FleetClock& other) {
                         return one.boundNs < other.boundNs;
                       }) -
      clocks.begin());
}

}  // namespace host
