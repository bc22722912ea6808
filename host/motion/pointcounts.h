#pragma once

#include <cstdint>

namespace host {

/// What became of the points of one axis: points = reached + cleared + refused + those that
/// wait still.
struct PointCounts {
  std::uint64_t points = 0;
  std::uint64_t reached = 0;
  std::uint64_t cleared = 0;
  std::uint64_t refused = 0;
  /// Of the points, those that were due before they could be reached.
  std::uint64_t late = 0;
  /// Of the points, those that were moved into the limits.
  std::uint64_t limited = 0;

  [[nodiscard]] std::uint64_t left() const { return points - reached - cleared - refused; }
};

}  // namespace host
