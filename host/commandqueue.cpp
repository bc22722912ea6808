#include "host/commandqueue.h"

#include <algorithm>
#include <iterator>

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

std::vector<QueuedItem> pushList(CommandQueue& queue, const PlannedList& list) {
  const auto [begin, end] = removedRange(queue, list);
  std::vector<QueuedItem> removed(begin, end);
  queue.erase(begin, end);
  std::vector<QueuedItem> added;
  for (const PlannedItem& item : list.items) {
    added.push_back({item, list.motion, std::max(item.timeMs, list.handOverMs), false});
  }
  CommandQueue merged;
  std::merge(added.begin(), added.end(), queue.begin(), queue.end(), std::back_inserter(merged),
             earlier);
  queue = std::move(merged);
  return removed;
}

}  // namespace host
