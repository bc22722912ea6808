#include "host/cli/fleet/clockfilter.h"

#include <algorithm>
#include <cstddef>

namespace host {
namespace {

/// Between which two numbers the offset lies.
struct OffsetRange {
  std::int64_t leastNs = 0;
  std::int64_t mostNs = 0;
};

OffsetRange rangeAt(const ClockExchange& exchange, std::int64_t nowNs) {
  // The machine read its clock after the request was sent, and before the answer was here.
  const std::int64_t driftNs = ClockFilter::driftNs(nowNs - exchange.askedNs);
  return {exchange.sentNs - exchange.answeredNs - driftNs,
          exchange.receivedNs - exchange.askedNs + driftNs};
}

}  // namespace

std::int64_t ClockFilter::driftNs(std::int64_t ageNs) {
  return std::max<std::int64_t>(ageNs, 0) / 1'000'000 * driftPerMillion + driftPerMillion;
}

bool ClockFilter::add(const ClockExchange& exchange) {
  constexpr std::size_t most = 64;
  const OffsetRange added = rangeAt(exchange, exchange.answeredNs);
  const bool fits = std::all_of(latest_.begin(), latest_.end(), [&](const ClockExchange& each) {
    const OffsetRange range = rangeAt(each, exchange.answeredNs);
    return range.leastNs <= added.mostNs && added.leastNs <= range.mostNs;
  });
  if (!fits) {
    latest_.clear();
  }
  latest_.push_back(exchange);
  if (latest_.size() > most) {
    latest_.pop_front();
  }
  return fits;
}

std::optional<ClockOffset> ClockFilter::at(std::int64_t nowNs) const {
  std::optional<ClockOffset> best;
  for (const ClockExchange& exchange : latest_) {
    const OffsetRange range = rangeAt(exchange, nowNs);
    const std::int64_t widthNs = range.mostNs - range.leastNs;
    const ClockOffset offset{range.leastNs + widthNs / 2, (widthNs + 1) / 2};
    if (!best || offset.boundNs < best->boundNs) {
      best = offset;
    }
  }
  return best;
}

}  // namespace host
