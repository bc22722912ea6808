#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "host/engine/counter.h"

namespace host {

/// Durations in nanoseconds, in buckets that widen with the value so that each
/// spans at most a thirty-second of it. Fixed size; `add` may be called in the
/// control cycle, by one thread; others may read meanwhile.
class Histogram {
 public:
  void add(std::uint64_t nanoseconds) noexcept;

  /// 0 while nothing was added.
  [[nodiscard]] std::uint64_t minimum() const { return minimum_; }
  [[nodiscard]] std::uint64_t maximum() const { return maximum_; }
  /// A duration that at least this share (0 to 1) of all do not exceed.
  [[nodiscard]] std::uint64_t quantile(double share) const;

 private:
  static constexpr unsigned int subBits = 5;
  static constexpr std::size_t subBuckets = std::size_t{1} << subBits;
  static constexpr std::size_t bucketCount = (64 - subBits + 1) * subBuckets;

  static std::size_t bucketOf(std::uint64_t nanoseconds) noexcept;
  static std::uint64_t upperBound(std::size_t bucket);

  std::array<Counter, bucketCount> buckets_{};
  Counter count_;
  Counter minimum_;
  Counter maximum_;
};

}  // namespace host
