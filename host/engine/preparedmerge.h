#pragma once

#include <cstddef>
#include <vector>

#include "host/motion/backlog.h"

namespace host {

/// A backlog with the points of a long batch taken in, made beside the one in use, so that
/// nobody waits for it. What is reached meanwhile goes from both.
class PreparedMerge {
 public:
  /// Of the backlog, cycles may reach the first `windowed` points before `applyTo`.
  PreparedMerge(const Backlog& backlog, std::size_t windowed, const std::vector<Point>& points,
                TimedCommand::commandType mode);

  /// Takes the place of the backlog that it was made from. Returns what the mode removed.
  std::vector<Backlog::Block> applyTo(Backlog& backlog);

 private:
  void forget(const Point& reached);

  Backlog merged_;
  std::vector<Backlog::Block> removed_;
  std::vector<Point> windowed_;
};

}  // namespace host
