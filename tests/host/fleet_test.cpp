// The clocks of several machines: what is told of them holds, whatever the network does.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <vector>

#include "host/cli/fleet/clockfilter.h"
#include "host/cli/fleet/commonstart.h"
#include "tests/support/random.h"

namespace {

std::int64_t drawn(Random& random, std::int64_t least, std::int64_t most) {
  return static_cast<std::int64_t>(
      random.between(static_cast<double>(least), static_cast<double>(most)));
}

TEST(ClockFilter, KnowsTheOffsetWithinItsBound) {
  Random random(1);
  for (int run = 0; run < 1000; ++run) {
    const std::int64_t offset = drawn(random, -1'000'000'000'000, 1'000'000'000'000);
    const double drift = random.between(-1e-4, 1e-4);
    const auto machine = [&](std::int64_t now) {
      return now + offset + static_cast<std::int64_t>(drift * static_cast<double>(now));
    };
    host::ClockFilter filter;
    EXPECT_FALSE(filter.at(0));
    std::int64_t now = 0;
    std::int64_t least = std::numeric_limits<std::int64_t>::max();
    for (int i = 0; i < 100; ++i) {
      host::ClockExchange exchange;
      exchange.askedNs = now += drawn(random, 0, 200'000'000);
      exchange.receivedNs = machine(now += drawn(random, 10'000, 50'000'000));
      exchange.sentNs = machine(now += drawn(random, 0, 5'000'000));
      exchange.answeredNs = now += drawn(random, 10'000, 50'000'000);
      EXPECT_TRUE(filter.add(exchange)) << run;
      const auto known = filter.at(now);
      EXPECT_LE(std::abs(known->offsetNs - (machine(now) - now)), known->boundNs) << run;
      const std::int64_t width =
          exchange.answeredNs - exchange.askedNs - (exchange.sentNs - exchange.receivedNs);
      least = i < 64 ? std::min(least, width) : width;
      EXPECT_LE(known->boundNs, least / 2 + 2'000'000) << run;
    }
    // A clock was set.
    EXPECT_FALSE(filter.add({now, machine(now) + 200'000'000, machine(now) + 200'000'000, now}));
    EXPECT_EQ(filter.at(now)->offsetNs, machine(now) + 200'000'000 - now) << run;
  }
}

TEST(CommonStart, IsAsCloseAsItIsSaidToBe) {
  Random random(2);
  for (int run = 0; run < 2000; ++run) {
    std::vector<host::FleetClock> clocks(1 + random.below(6));
    std::vector<std::int64_t> truth;
    const bool areEqual = random.chance(50);
    for (host::FleetClock& clock : clocks) {
      clock.zeroNs = drawn(random, -1'000'000'000'000, 1'000'000'000'000);
      clock.boundNs = drawn(random, 0, random.chance(20) ? 30'000'000 : 300'000);
      clock.cycleMs = areEqual ? 10 : 1 + random.below(20);
      truth.push_back(clock.zeroNs + drawn(random, -clock.boundNs, clock.boundNs));
    }
    const std::int64_t earliest = drawn(random, 0, 1'000'000'000'000);
    const host::CommonStart start = host::findCommonStart(clocks, earliest);
    EXPECT_GE(start.startNs, earliest);
    EXPECT_LE(start.startNs, earliest + host::longestCycleNs(clocks));
    std::vector<std::int64_t> first;
    for (std::size_t i = 0; i < clocks.size(); ++i) {
      EXPECT_LE(std::abs(clocks[i].readingAt(start.atMs[i]) - start.startNs), 500'000);
      const std::int64_t cycle = clocks[i].cycleMs;
      std::int64_t next = start.atMs[i];
      while (next % cycle != 0) {
        ++next;
      }
      first.push_back(truth[i] + next * 1'000'000);
    }
    const auto [least, most] = std::minmax_element(first.begin(), first.end());
    EXPECT_LE(*most - *least, start.apartNs) << run;
    EXPECT_EQ(start.apartNs, host::apartNs(clocks, start.atMs));
    if (areEqual && clocks.size() == 2) {
      // Half a cycle, the grid of the tries and of the milliseconds, and what is not known.
      EXPECT_LE(start.apartNs, 5'000'000 + clocks[0].boundNs + clocks[1].boundNs) << run;
    }
  }
}

TEST(CommonStart, NobodyBeginsWhoWasNotTold) {
  Random random(3);
  for (int run = 0; run < 20'000; ++run) {
    std::vector<host::FleetClock> clocks(1 + random.below(4));
    for (host::FleetClock& clock : clocks) {
      clock.boundNs = drawn(random, 10'000, 30'000'000);
      clock.cycleMs = 1 + random.below(random.chance(50) ? 20 : 1000);
    }
    const std::int64_t lastCall = host::lastCallNs(clocks);
    EXPECT_GT(lastCall, host::startGuardNs(clocks));
    const host::FleetClock& clock = clocks.front();
    const std::int64_t left = lastCall + drawn(random, 0, 5'000'000'000);
    const std::int64_t lease = host::leaseBeforeStartNs(clock, left) / 1'000'000 * 1'000'000;
    EXPECT_GE(lease, 50'000'000);
    EXPECT_LT(lease, host::mostSilentNs(clock));
    // It arrives, is read by the next cycle, and ends with the first one that finds it too old.
    const std::int64_t cycle = clock.cycleMs * 1'000'000;
    const std::int64_t read = drawn(random, 0, 2 * clock.boundNs) + drawn(random, 0, cycle);
    const std::int64_t ended = read + (lease / cycle + 1) * cycle;
    EXPECT_LT(ended + cycle, left) << run;
  }
}

}  // namespace
