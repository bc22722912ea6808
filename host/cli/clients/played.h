#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "host/base/values.h"

namespace host {

/// What became of the points of one request.
struct Played {
  std::uint64_t points = 0;
  std::uint64_t reached = 0;
  std::uint64_t cleared = 0;
  std::uint64_t refused = 0;
  /// By whom they were cleared, or why refused.
  std::set<std::string> by;

  [[nodiscard]] bool isOver() const { return reached + cleared + refused >= points; }
  /// Whether somebody else cleared points, or some were refused.
  [[nodiscard]] bool isDisturbed() const;
  /// An event of that request.
  void note(const Json& event);
  /// In words for a user: how many were not reached, and why.
  [[nodiscard]] std::string shortfall() const;
};

/// The keys of the axes that the answer to a request names, as a list; their points are expected.
Json keysIn(const Json& answer, Played& played);

}  // namespace host
