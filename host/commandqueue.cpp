#include "host/commandqueue.h"

#include <algorithm>
#include <utility>

namespace host {
namespace {

bool earlier(const QueuedItem& one, const QueuedItem& other) {
  return one.timeMs < other.timeMs;
}

/// The range of the queue that the mode removes.
std::pair<CommandQueue::iterator, CommandQueue::iterator> removedRange(CommandQueue& queue,
                                                                       const PlannedList& list) {
  if (list.mode == TimedCommand::REPLACE) {
    return {queue.begin(), queue.end()};
  }
  if (list.items.empty()) {
    return {queue.end(), queue.end()};
  }
  QueuedItem boundary;
  if (list.mode == TimedCommand::CLEAR_AFTER) {
    boundary.timeMs = list.items.front().timeMs;
    return {std::lower_bound(queue.begin(), queue.end(), boundary, earlier), queue.end()};
  }
  if (list.mode == TimedCommand::CLEAR_BEFORE) {
    boundary.timeMs = list.items.back().timeMs;
    return {queue.begin(), std::upper_bound(queue.begin(), queue.end(), boundary, earlier)};
  }
  return {queue.end(), queue.end()};
}

}  // namespace

std::size_t dueCount(const CommandQueue& queue, std::int64_t timeMs) {
  std::size_t count = 0;
  while (count < queue.size() && queue[count].timeMs < timeMs) {
    ++count;
  }
  return count + (count < queue.size() && queue[count].timeMs == timeMs ? 1 : 0);
}

std::vector<QueuedItem> pushList(CommandQueue& queue, const PlannedList& list) {
  const auto [begin, end] = removedRange(queue, list);
  std::vector<QueuedItem> removed(begin, end);
  queue.erase(begin, end);
  std::vector<QueuedItem> added;
  for (const PlannedItem& item : list.items) {
    added.push_back({item, list.motion, std::max(item.timeMs, list.handOverMs), false});
  }
  if (!added.empty()) {
    const auto place = std::lower_bound(queue.begin(), queue.end(), added.front(), earlier);
    const auto first = queue.insert(place, added.begin(), added.end());
    std::inplace_merge(first, first + static_cast<std::ptrdiff_t>(added.size()), queue.end(),
                       earlier);
  }
  return removed;
}

}  // namespace host
