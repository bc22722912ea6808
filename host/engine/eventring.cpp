#include "host/engine/eventring.h"

#include <algorithm>
#include <functional>
#include <mutex>

namespace host {

EventRing::EventRing(std::size_t length, std::size_t historyBlocks)
    : length_(length), history_(historyBlocks) {
  events_.reserve(length);
}

/// Looks at the latest few alone: batches seldom take turns among the axes.
bool EventRing::joinsGathered(const Event& event) {
  constexpr std::ptrdiff_t few = 8;
  const auto last = gathered_.rbegin();
  const auto end = last + std::min<std::ptrdiff_t>(few, gathered_.rend() - last);
  const auto same = std::find_if(last, end, [&event](const Event& other) {
    return other.batch == event.batch && other.timeMs == event.timeMs;
  });
  if (same == end) {
    return false;
  }
  same->count += event.count;
  same->actuator = -1;
  return true;
}

void EventRing::tell(const Event& event, const Point* /*points*/) {
  if (event.kind != EventKind::reached) {
    publish();
    append(event);
  } else if (!joinsGathered(event)) {
    gathered_.push_back(event);
  }
}

void EventRing::publish() {
  for (const Event& event : gathered_) {
    append(event);
  }
  gathered_.clear();
}

void EventRing::append(const Event& event) {
  const std::lock_guard lock(mutex_);
  if (events_.size() < length_) {
    events_.push_back(event);
  } else {
    events_[history_.count() % length_] = event;
  }
  history_.add(event.kind);
}

EventRing::Cursor EventRing::cursorAt(std::optional<std::uint64_t> number) const {
  const std::lock_guard lock(mutex_);
  const std::uint64_t next = std::min(number.value_or(history_.count()), history_.count());
  return {next, history_.before(next)};
}

std::vector<Event> EventRing::read(Cursor& cursor, Counts& missed) const {
  std::vector<Event> read;
  read.reserve(portion);
  missed = {};
  const std::lock_guard lock(mutex_);
  const std::uint64_t oldest = history_.count() - events_.size();
  if (cursor.next < oldest) {
    const Counts before = history_.before(oldest);
    std::transform(before.begin(), before.end(), cursor.seen.begin(), missed.begin(),
                   std::minus<>());
    cursor = {oldest, before};
  }
  for (; cursor.next < history_.count() && read.size() < portion; ++cursor.next) {
    read.push_back(events_[cursor.next % length_]);
    ++cursor.seen[static_cast<std::size_t>(read.back().kind)];
  }
  return read;
}

}  // namespace host
