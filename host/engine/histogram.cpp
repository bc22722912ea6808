#include "host/engine/histogram.h"

#include <algorithm>
#include <cmath>

namespace host {

void Histogram::add(std::uint64_t nanoseconds) noexcept {
  ++buckets_[bucketOf(nanoseconds)];
  minimum_ = count_ == 0 ? nanoseconds : std::min<std::uint64_t>(minimum_, nanoseconds);
  maximum_ = std::max<std::uint64_t>(maximum_, nanoseconds);
  ++count_;
}

// Values below `subBuckets` have a bucket each; from there on, every power of
// two is cut into as many.
std::size_t Histogram::bucketOf(std::uint64_t nanoseconds) noexcept {
  if (nanoseconds < subBuckets) {
    return nanoseconds;
  }
  const auto highestBit = 63U - static_cast<unsigned int>(__builtin_clzll(nanoseconds));
  const unsigned int shift = highestBit - subBits;
  return (shift + 1) * subBuckets + (nanoseconds >> shift) - subBuckets;
}

std::uint64_t Histogram::upperBound(std::size_t bucket) {
  if (bucket < 2 * subBuckets) {
    return bucket;
  }
  const std::size_t shift = bucket / subBuckets - 1;
  return ((bucket % subBuckets + subBuckets + 1) << shift) - 1;
}

std::uint64_t Histogram::quantile(double share) const {
  const auto wanted =
      static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(std::uint64_t{count_})));
  std::uint64_t seen = 0;
  for (std::size_t bucket = 0; bucket < bucketCount; ++bucket) {
    seen += buckets_[bucket];
    if (seen >= wanted && seen > 0) {
      return std::max(minimum(), std::min(upperBound(bucket), maximum()));
    }
  }
  return maximum();
}

}  // namespace host
