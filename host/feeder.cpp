#include "host/feeder.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "timedcommandmanager/timedcommandmanager.h"

namespace host {
namespace {

bool isOpen(const QueuedItem& item) {
  return !item.handedOver;
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

/// About the most items of these lists that a timeline holds at once.
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
    for (std::size_t due = dueCount(channel.queue, timeMs);
         due > 0 && channel.queue.front().handedOver; --due) {
      channel.queue.pop_front();
      --channel.inTimeline;
    }
    deliver(commands, channel, timeMs);
    while (takeNextList(channel, timeMs)) {
      deliver(commands, channel, timeMs);
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
  channel.inTimeline -= removed.size() - static_cast<std::size_t>(
                                             std::count_if(removed.begin(), removed.end(), isOpen));
  channel.push = {list.mode, list.motion, windowItems};
  if (list.mode == TimedCommand::CLEAR_BEFORE) {
    channel.push.most = list.items.size();
  } else if (list.mode == TimedCommand::CLEAR_AFTER) {
    // Its first item decides; older ones that are still open go in before the rest.
    const auto open = std::find_if(channel.queue.begin(), channel.queue.end(), isOpen);
    channel.push.most = open->motion == list.motion ? windowItems : 1;
  }
  return true;
}

/// What the next push carries: what has to go in at once, or open items up to the
/// end of the window.
Feeder::Items Feeder::nextItems(Channel& channel, std::int64_t timeMs) const {
  const bool atOnce = channel.push.mode != TimedCommand::MERGE;
  const std::int64_t nearMs = timeMs + std::int64_t{windowCycles} * schedule_.cycleMs;
  Items items;
  std::size_t windowEnd = windowItems;
  for (std::size_t i = 0; i < channel.queue.size(); ++i) {
    QueuedItem& item = channel.queue[i];
    windowEnd += item.timeMs <= timeMs ? 1 : 0;
    const bool beyond = !atOnce && i >= windowEnd && item.timeMs > nearMs;
    // Pushed one after the other, items with equal times would change places.
    const bool tied = !items.empty() && items.back()->timeMs == item.timeMs;
    if ((beyond || items.size() >= channel.push.most) && !tied) {
      break;
    }
    const bool meant =
        !atOnce || channel.push.motion == nullptr || item.motion == channel.push.motion;
    if (isOpen(item) && meant) {
      items.push_back(&item);
    }
  }
  return items;
}

void Feeder::deliver(TimedCommandManager& commands, Channel& channel, std::int64_t timeMs) const {
  for (;;) {
    const Items items = nextItems(channel, timeMs);
    if (items.empty() && channel.push.mode != TimedCommand::REPLACE) {
      channel.push = Push();
      return;
    }
    if (channel.inTimeline + items.size() > TimedCommand::MAX_TIMELINE_ITEMS) {
      // Full of what earlier lists want far ahead: it begins anew with what is next.
      for (QueuedItem& item : channel.queue) {
        item.handedOver = false;
      }
      channel.inTimeline = 0;
      channel.push = {TimedCommand::REPLACE, nullptr, windowItems};
      continue;
    }
    // A refusal, too, has cleared what the mode asks for.
    const bool taken = push(commands, channel, items, timeMs);
    channel.push = Push();
    if (!taken) {
      return;
    }
  }
}

/// False when the timeline refused the items.
bool Feeder::push(TimedCommandManager& commands, Channel& channel, const Items& items,
                  std::int64_t timeMs) const {
  CommandList list = pushedList(items, startTick_);
  channel.count.sent += items.size();
  if (!commands.AddTimedCommand(channel.key, list, channel.push.mode)) {
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
