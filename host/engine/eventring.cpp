#include "host/engine/eventring.h"

#include <algorithm>
#include <mutex>

namespace host {
namespace {

std::size_t indexOf(EventKind kind) {
  return static_cast<std::size_t>(kind);
}

}  // namespace

EventRing::EventRing(std::size_t length) : length_(length) {
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
    Event& oldest = events_[count_ % length_];
    ++overwritten_[indexOf(oldest.kind)];
    oldest = event;
  }
  ++told_[indexOf(event.kind)];
  ++count_;
}

EventRing::Cursor EventRing::cursorAt(std::optional<std::uint64_t> number) const {
  Cursor cursor;
  {
    const std::lock_guard lock(mutex_);
    if (number.value_or(count_) >= count_) {
      return {count_, told_};
    }
  }
  Counts missed;
  do {
    (void)read(cursor, missed, *number);
  } while (cursor.next < *number);
  return cursor;
}

std::vector<Event> EventRing::read(Cursor& cursor, Counts& missed, std::uint64_t end) const {
  std::vector<Event> read;
  read.reserve(portion);
  missed = {};
  const std::lock_guard lock(mutex_);
  const std::uint64_t oldest = count_ - events_.size();
  if (cursor.next < oldest) {
    for (std::size_t kind = 0; kind < eventKinds; ++kind) {
      missed[kind] = overwritten_[kind] - cursor.seen[kind];
    }
    cursor.seen = overwritten_;
    cursor.next = oldest;
  }
  for (; cursor.next < std::min(count_, end) && read.size() < portion; ++cursor.next) {
    read.push_back(events_[cursor.next % length_]);
    ++cursor.seen[indexOf(read.back().kind)];
  }
  return read;
}

}  // namespace host
