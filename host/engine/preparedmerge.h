#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "host/motion/backlog.h"

namespace host {

/// The result of merging a long batch into a backlog, computed without the gate while the
/// backlog is in use. Points that cycles reach in the meantime are removed from both; after any
/// other change the batch is merged anew.
///
/// Invariant: after `applyTo`, the backlog is what merging the batch at that moment would give.
class PreparedMerge {
 public:
  /// Before `applyTo`, cycles may reach the first `windowed` points of the backlog, no others.
  PreparedMerge(const Backlog& backlog, std::size_t windowed, const Rounds& points,
                TimedCommand::commandType mode, std::shared_ptr<const Curve> curve);

  /// Replaces the backlog that it was made from. Returns what the mode removed.
  Backlog::Removed applyTo(Backlog& backlog);

 private:
  void forget(const Point& reached);

  const std::uint64_t changes_;
  const Rounds points_;
  const TimedCommand::commandType mode_;
  std::shared_ptr<const Curve> curve_;
  Backlog merged_;
  Backlog::Removed removed_;
  std::vector<Point> windowed_;
};

}  // namespace host
