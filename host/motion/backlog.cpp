#include "host/motion/backlog.h"

#include <algorithm>

namespace host {
namespace {

bool earlier(const Point& one, const Point& other) {
  return one.timeMs < other.timeMs;
}

bool isBefore(const Point& point, std::int64_t timeMs) {
  return point.timeMs < timeMs;
}

bool isAfter(std::int64_t timeMs, const Point& point) {
  return timeMs < point.timeMs;
}

template <typename Iterator>
std::size_t distanceOf(Iterator begin, Iterator end) {
  return static_cast<std::size_t>(end - begin);
}

}  // namespace

void Backlog::erase(std::size_t position) {
  points_.erase(points_.begin() + static_cast<std::ptrdiff_t>(position));
}

Backlog::Range Backlog::kept(const std::vector<Point>& points,
                             TimedCommand::commandType mode) const {
  if (mode == TimedCommand::REPLACE) {
    return {};
  }
  Range range{0, points_.size()};
  if (points.empty()) {
    return range;
  }
  if (mode == TimedCommand::CLEAR_AFTER) {
    range.end = distanceOf(points_.begin(), std::lower_bound(points_.begin(), points_.end(),
                                                             points.front().timeMs, isBefore));
  } else if (mode == TimedCommand::CLEAR_BEFORE) {
    range.begin = distanceOf(points_.begin(), std::upper_bound(points_.begin(), points_.end(),
                                                               points.back().timeMs, isAfter));
  }
  return range;
}

std::size_t Backlog::countDue(Range range, std::int64_t beginMs, std::int64_t endMs) const {
  const auto begin = points_.begin() + static_cast<std::ptrdiff_t>(range.begin);
  const auto end = points_.begin() + static_cast<std::ptrdiff_t>(range.end);
  const auto first = std::lower_bound(begin, end, beginMs, isBefore);
  return distanceOf(first, std::upper_bound(first, end, endMs, isAfter));
}

std::vector<Point> Backlog::take(const std::vector<Point>& points, TimedCommand::commandType mode) {
  const Range range = kept(points, mode);
  const auto begin = points_.begin() + static_cast<std::ptrdiff_t>(range.begin);
  const auto end = points_.begin() + static_cast<std::ptrdiff_t>(range.end);
  std::vector<Point> removed(points_.begin(), begin);
  removed.insert(removed.end(), end, points_.end());
  points_.erase(end, points_.end());
  points_.erase(points_.begin(), points_.begin() + static_cast<std::ptrdiff_t>(range.begin));
  if (!points.empty()) {
    const auto place =
        std::lower_bound(points_.begin(), points_.end(), points.front().timeMs, isBefore);
    const auto first = points_.insert(place, points.begin(), points.end());
    // A stable merge: of equal times those of the first range, the new ones, stay in front.
    std::inplace_merge(first, first + static_cast<std::ptrdiff_t>(points.size()), points_.end(),
                       earlier);
  }
  return removed;
}

}  // namespace host
