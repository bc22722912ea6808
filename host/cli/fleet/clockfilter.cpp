#include "host/cli/fleet/clockfilter.h"

#include <algorithm>
#include <cstddef>

namespace host {

void ClockFilter::add(const ClockExchange& exchange) {
  constexpr std::size_t most = 64;
  latest_.push_back(exchange);
  if (latest_.size() > most) {
    latest_.pop_front();
  }
}

std::optional<ClockOffset> ClockFilter::at(std::int64_t nowNs) const {
  std::optional<ClockOffset> best;
  for (const ClockExchange& exchange : latest_) {
    // The machine read its clock after the request was sent, and before the answer was here.
    const std::int64_t leastNs = exchange.sentNs - exchange.answeredNs;
    const std::int64_t mostNs = exchange.receivedNs - exchange.askedNs;
    const std::int64_t ageNs = std::max<std::int64_t>(nowNs - exchange.askedNs, 0);
    const ClockOffset offset{
        leastNs + (mostNs - leastNs) / 2,
        (mostNs - leastNs + 1) / 2 + ageNs / 1'000'000 * driftPerMillion + driftPerMillion};
    if (!best || offset.boundNs < best->boundNs) {
      best = offset;
    }
  }
  return best;
}

}  // namespace host
