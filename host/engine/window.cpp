#include "host/engine/window.h"

#include <algorithm>

#include "host/motion/density.h"

namespace host {
namespace {

constexpr std::size_t mostInTimeline = TimedCommand::MAX_TIMELINE_ITEMS;

}  // namespace

void Window::clear() {
  items_.clear();
  points_ = 0;
}

void Window::append(const WindowItem& item) {
  items_.push_back(item);
  points_ += item.isPoint() ? 1 : 0;
}

void Window::popFront() {
  points_ -= items_.front().isPoint() ? 1 : 0;
  items_.pop_front();
}

void Window::erase(std::size_t position) {
  points_ -= items_[position].isPoint() ? 1 : 0;
  items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(position));
}

/// What follows on the path behind the last item. There is more of it.
WindowItem Window::next(const Path& path) const {
  const Point& end = path.backlog[points_];
  if (path.interpolates) {
    SegmentStart start = path.start;
    if (points_ > 0) {
      const Point& before = path.backlog[points_ - 1];
      start = startAt(before, path.backlog.knotOf(before), path.latestMs);
    }
    std::int64_t afterMs = std::max(start.timeMs, path.latestMs);
    if (!items_.empty()) {
      afterMs = std::max(afterMs, items_.back().timeMs);
    }
    const Segment segment(start, end, path.backlog.knotOf(end));
    if (const auto sample = sampleAfter(segment, afterMs, path.cycleMs, path.range)) {
      return {sample->timeMs, hal::AttrGeneric(sample->value), WindowItem::Kind::sample};
    }
  }
  return {end.timeMs, end.value, WindowItem::Kind::point};
}

/// How many points have the time of this item, from it on.
std::size_t Window::tiedWith(const Path& path, const WindowItem& item) const {
  std::size_t end = points_;
  while (end < path.backlog.size() && path.backlog[end].timeMs == item.timeMs) {
    ++end;
  }
  return std::max<std::size_t>(end - points_, 1);
}

std::size_t Window::behind(std::int64_t nextMs) const {
  const auto first = std::upper_bound(
      items_.begin(), items_.end(), nextMs,
      [](std::int64_t timeMs, const WindowItem& item) { return timeMs < item.timeMs; });
  return static_cast<std::size_t>(items_.end() - first);
}

bool Window::isShort(const Path& path) const {
  if (isWholePath(path) || items_.size() >= mostInTimeline) {
    return false;
  }
  if (!items_.empty() && items_.back().timeMs < path.reachMs) {
    return true;
  }
  const bool isFew =
      items_.size() < windowItems || items_[items_.size() - windowItems].timeMs <= path.nextMs();
  const std::int64_t enoughMs = path.nextMs() + (isFew ? furthestAheadMs : windowMs);
  // What follows is not before the last item: mostly that alone decides.
  const bool endsBehind = !items_.empty() && items_.back().timeMs > enoughMs;
  return !endsBehind && next(path).timeMs <= enoughMs;
}

void Window::fill(const Path& path, std::size_t mostItems) {
  const std::int64_t nextMs = path.nextMs();
  const std::size_t most = std::min(mostItems, mostInTimeline);
  const std::int64_t reachMs = windowMs + static_cast<std::int64_t>(refillItems) * path.cycleMs;
  std::size_t behindNext = behind(nextMs);
  while (!isWholePath(path)) {
    const WindowItem item = next(path);
    const bool isTied = !items_.empty() && items_.back().timeMs == item.timeMs;
    const bool isFull = behindNext >= windowItems + refillItems && item.timeMs > nextMs + reachMs &&
                        items_.back().timeMs >= path.reachMs;
    if (!isTied && (isFull || item.timeMs > nextMs + furthestAheadMs ||
                    items_.size() + tiedWith(path, item) > most)) {
      return;
    }
    append(item);
    behindNext += item.timeMs > nextMs ? 1 : 0;
  }
}

std::int64_t Window::boundMs(const Path& path) const {
  if (isWholePath(path)) {
    return unboundedMs;
  }
  if (!path.interpolates) {
    const std::int64_t nextMs = path.backlog[points_].timeMs;
    return nextMs > path.nextMs() + furthestAheadMs ? unboundedMs
                                                    : std::max(nextMs - 1, path.latestMs);
  }
  if (items_.empty()) {
    return path.latestMs;
  }
  const std::int64_t endMs = items_.back().timeMs;
  if (endMs >= path.nextMs()) {
    return endMs;
  }
  // What follows may find room only when a cycle has taken what is due.
  const bool hasRoom = items_.size() + tiedWith(path, next(path)) <= mostInTimeline;
  return hasRoom ? std::max(endMs, path.latestMs) : path.nextMs();
}

}  // namespace host
