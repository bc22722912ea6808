#include "host/feeder.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "timedcommandmanager/timedcommandmanager.h"

namespace host {

Feeder::Feeder(const Motion& motion, const Schedule& schedule, std::vector<std::string> names,
               const std::vector<float>& present)
    : motion_(motion),
      schedule_(schedule),
      names_(std::move(names)),
      present_(present),
      counts_(names_.size()) {}

std::int64_t Feeder::itemMs(std::size_t item) const {
  return item == 0 ? 0 : std::int64_t{schedule_.leadMs} + motion_.times[item - 1];
}

float Feeder::itemValue(std::size_t item, std::size_t column) const {
  return item == 0 ? present_[column] : motion_.position(item - 1, column);
}

void Feeder::feed(TimedCommandManager& commands, std::int64_t timeMs) {
  while (consumed_ < itemCount() && itemMs(consumed_) <= timeMs) {
    ++consumed_;
  }
  const std::size_t end = std::min(consumed_ + windowItems, itemCount());
  for (std::size_t column = 0; column < names_.size(); ++column) {
    feedColumn(commands, column, end);
  }
}

void Feeder::feedColumn(TimedCommandManager& commands, std::size_t column, std::size_t end) {
  FeedCount& count = counts_[column];
  // What is late goes in before what is next, a window's worth at a time.
  const std::size_t begin = count.delivered;
  end = std::min(end, begin + windowItems);
  if (begin >= end) {
    return;
  }
  CommandList list;
  for (std::size_t item = begin; item < end; ++item) {
    list.emplace_back(hal::AttrGeneric(itemValue(item, column)), schedule_.stamp(itemMs(item)));
  }
  count.sent += end - begin;
  if (!commands.AddTimedCommand(names_[column], list, TimedCommand::MERGE)) {
    throw std::logic_error("the name table does not know " + names_[column]);
  }
  if (!list.empty()) {
    ++count.refused;
    return;
  }
  count.late += consumed_ > begin ? std::min(end, consumed_) - begin : 0;
  count.delivered = end;
}

bool Feeder::allDelivered() const {
  return std::all_of(counts_.begin(), counts_.end(),
                     [this](const FeedCount& count) { return count.delivered == itemCount(); });
}

}  // namespace host
