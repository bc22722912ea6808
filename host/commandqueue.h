#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "host/plannedlist.h"

namespace host {

struct QueuedItem : PlannedItem {
  const Motion* motion = nullptr;
  /// When it takes effect: not before its list is handed over.
  std::int64_t dueMs = 0;
  /// A timeline of the library holds it.
  bool handedOver = false;
};

/// The commands of one actuator that are still to come, in time order, of any
/// number: what its timeline holds, and behind that what the host has not
/// handed over yet.
using CommandQueue = std::deque<QueuedItem>;

/// How many items a cycle at this time takes: those that are overdue, and of those
/// due exactly now the first.
std::size_t dueCount(const CommandQueue& queue, std::int64_t timeMs);

/// Takes a list in by the rules of a timeline: removes what its mode asks for,
/// then merges, a new item before a queued one with the same time. Returns what
/// was removed.
std::vector<QueuedItem> pushList(CommandQueue& queue, const PlannedList& list);

}  // namespace host
