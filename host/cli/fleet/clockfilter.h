#pragma once

#include <cstdint>
#include <deque>
#include <optional>

namespace host {

/// One exchange of stamps with a machine, in nanoseconds: two of the fleet's clock, and the
/// machine's two between them.
struct ClockExchange {
  std::int64_t askedNs = 0;
  std::int64_t receivedNs = 0;
  std::int64_t sentNs = 0;
  std::int64_t answeredNs = 0;
};

/// How far a machine's clock is ahead of the fleet's, in nanoseconds, and how far off that may be.
struct ClockOffset {
  std::int64_t offsetNs = 0;
  std::int64_t boundNs = 0;
};

/// Tells the offset of a clock from repeated exchanges, by the one with the least bound. Whatever
/// the network does, the offset lies within it, as long as the two clocks drift apart by at most
/// `driftPerMillion`.
class ClockFilter {
 public:
  static constexpr std::int64_t driftPerMillion = 100;

  /// How far the clocks may drift apart meanwhile.
  static std::int64_t driftNs(std::int64_t ageNs);

  /// False when it contradicts the earlier ones, which are then forgotten: a clock was set, or
  /// drifts faster.
  bool add(const ClockExchange& exchange);
  /// At this reading of the fleet's clock; none before the first exchange.
  [[nodiscard]] std::optional<ClockOffset> at(std::int64_t nowNs) const;

 private:
  std::deque<ClockExchange> latest_;
};

}  // namespace host
