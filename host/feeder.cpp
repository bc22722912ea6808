#include "host/feeder.h"

#include <algorithm>
#include <stdexcept>

#include "timedcommandmanager/timedcommandmanager.h"

namespace host {
namespace {

bool isOpen(const QueuedItem& item) {
  return !item.handedOver;
}

/// What the next push carries. Open items go in up to the window's end, and
/// wherever the timeline holds later ones; a mode has to go in at once.
std::vector<QueuedItem*> nextItems(CommandQueue& queue, std::size_t inTimeline, bool atOnce,
                                   std::size_t most, std::int64_t timeMs) {
  std::vector<QueuedItem*> items;
  std::size_t windowEnd = windowItems;
  for (std::size_t i = 0; i < queue.size(); ++i) {
    QueuedItem& item = queue[i];
    windowEnd += item.timeMs <= timeMs ? 1 : 0;
    const bool full = items.size() >= most || (i >= windowEnd && inTimeline == 0 && !atOnce);
    // Pushed one after the other, items with equal times would change places.
    const bool tied = !items.empty() && items.back()->timeMs == item.timeMs;
    if (full && !tied) {
      break;
    }
    if (isOpen(item)) {
      items.push_back(&item);
    } else {
      --inTimeline;
    }
  }
  return items;
}

/// Items with equal stamps stand in reverse: the timeline turns them round.
CommandList pushedList(const std::vector<QueuedItem*>& items, std::uint32_t startTick) {
  CommandList list;
  auto tied = list.end();
  for (const QueuedItem* item : items) {
    const std::uint32_t stamp = startTick + static_cast<std::uint32_t>(item->timeMs);
    const bool isTied = !list.empty() && list.back().time == stamp;
    tied = list.emplace(isTied ? tied : list.end(), item->value, stamp);
  }
  return list;
}

/// The most items of these lists that a timeline holds at once.
std::size_t mostQueuedOf(const std::vector<PlannedList>& lists) {
  std::size_t most = 0;
  for (const PlannedList& list : lists) {
    const auto overdue =
        std::count_if(list.items.begin(), list.items.end(),
                      [&](const PlannedItem& item) { return item.timeMs < list.handOverMs; });
    const std::size_t whole = list.mode == TimedCommand::CLEAR_BEFORE ? list.items.size() : 0;
    most = std::max({most, whole, static_cast<std::size_t>(overdue)});
  }
  return std::min<std::size_t>(2 * windowItems + most, TimedCommand::MAX_TIMELINE_ITEMS);
}

}  // namespace

Feeder::Feeder(const Plan& plan, const std::vector<std::string>& keys, std::uint32_t startTick)
    : schedule_(plan.schedule), startTick_(startTick) {
  for (std::size_t i = 0; i < plan.actuators.size(); ++i) {
    Channel channel;
    channel.key = keys[i];
    channel.lists = &plan.actuators[i].lists;
    channels_.push_back(std::move(channel));
  }
}

void Feeder::feed(TimedCommandManager& commands, std::int64_t timeMs) {
  for (Channel& channel : channels_) {
    CommandQueue& queue = channel.queue;
    while (!queue.empty() && queue.front().handedOver && queue.front().timeMs <= timeMs) {
      queue.pop_front();
      --channel.inTimeline;
    }
    // A list waits until the one before it has been taken.
    while (deliver(commands, channel, timeMs) && takeNextList(channel, timeMs)) {
    }
  }
}

bool Feeder::takeNextList(Channel& channel, std::int64_t timeMs) const {
  const std::int64_t nextCycleMs = timeMs + schedule_.cycleMs;
  if (channel.nextList == channel.lists->size() ||
      (*channel.lists)[channel.nextList].handOverMs > nextCycleMs) {
    return false;
  }
  const PlannedList& list = (*channel.lists)[channel.nextList++];
  const std::vector<QueuedItem> removed = pushList(channel.queue, list);
  channel.count.cleared += removed.size();
  channel.inTimeline -= static_cast<std::size_t>(std::count_if(
      removed.begin(), removed.end(), [](const auto& item) { return !isOpen(item); }));
  // Behind older items that are still open, the timeline holds nothing to clear.
  const auto open = std::find_if(channel.queue.begin(), channel.queue.end(), isOpen);
  const bool comesNext = open == channel.queue.end() || open->motion == list.motion;
  channel.mode = comesNext ? list.mode : TimedCommand::MERGE;
  channel.pushItems = channel.mode == TimedCommand::CLEAR_BEFORE ? list.items.size() : windowItems;
  return true;
}

bool Feeder::deliver(TimedCommandManager& commands, Channel& channel, std::int64_t timeMs) const {
  for (;;) {
    const bool atOnce = channel.mode != TimedCommand::MERGE;
    const std::vector<QueuedItem*> items =
        nextItems(channel.queue, channel.inTimeline, atOnce, channel.pushItems, timeMs);
    if (items.empty() && !atOnce) {
      return true;
    }
    if (!push(commands, channel, items, timeMs)) {
      return false;
    }
    channel.mode = TimedCommand::MERGE;
    channel.pushItems = windowItems;
  }
}

/// False when the timeline refused the items.
bool Feeder::push(TimedCommandManager& commands, Channel& channel,
                  const std::vector<QueuedItem*>& items, std::int64_t timeMs) const {
  CommandList list = pushedList(items, startTick_);
  channel.count.sent += items.size();
  if (!commands.AddTimedCommand(channel.key, list, channel.mode)) {
    throw std::logic_error("the name table does not know " + channel.key);
  }
  if (!list.empty()) {
    ++channel.count.refused;
    return false;
  }
  for (QueuedItem* item : items) {
    item->handedOver = true;
    channel.count.late += item->dueMs <= timeMs ? 1 : 0;
  }
  channel.count.delivered += items.size();
  channel.inTimeline += items.size();
  return true;
}

bool Feeder::allDelivered() const {
  for (std::size_t i = 0; i < channels_.size(); ++i) {
    if (waiting(i) > 0 || channels_[i].nextList < channels_[i].lists->size()) {
      return false;
    }
  }
  return true;
}

std::size_t Feeder::waiting(std::size_t actuator) const {
  const Channel& channel = channels_[actuator];
  std::size_t count = channel.queue.size() - channel.inTimeline;
  for (std::size_t next = channel.nextList; next < channel.lists->size(); ++next) {
    count += (*channel.lists)[next].items.size();
  }
  return count;
}

std::size_t Feeder::mostQueued() const {
  std::size_t most = 0;
  for (const Channel& channel : channels_) {
    most += mostQueuedOf(*channel.lists);
  }
  return most;
}

}  // namespace host
