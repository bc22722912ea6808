#include "host/engine/preparedmerge.h"

#include <algorithm>
#include <utility>

namespace host {

PreparedMerge::PreparedMerge(const Backlog& backlog, std::size_t windowed, const Rounds& points,
                             TimedCommand::commandType mode, std::shared_ptr<const Curve> curve)
    : changes_(backlog.changes()), points_(points), mode_(mode), curve_(curve), merged_(backlog) {
  for (std::size_t i = 0; i < windowed; ++i) {
    windowed_.push_back(backlog[i]);
  }
  removed_ = merged_.take(points, mode, std::move(curve));
}

Backlog::Removed PreparedMerge::applyTo(Backlog& backlog) {
  if (backlog.changes() != changes_) {
    return backlog.take(points_, mode_, std::move(curve_));
  }
  std::size_t position = 0;
  for (const Point& point : windowed_) {
    if (position < backlog.size() && backlog[position].isSamePointAs(point)) {
      ++position;
    } else {
      forget(point);
    }
  }
  std::swap(backlog, merged_);
  return std::move(removed_);
}

void PreparedMerge::forget(const Point& reached) {
  if (merged_.remove(reached)) {
    return;
  }
  for (Backlog::Block& block : removed_.blocks) {
    const auto found = std::find_if(block.begin(), block.end(), [&reached](const Point& point) {
      return point.isSamePointAs(reached);
    });
    if (found != block.end()) {
      block.erase(found);
      return;
    }
  }
}

}  // namespace host
