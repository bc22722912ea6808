#include "host/feeder.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "timedcommandmanager/timedcommandmanager.h"

namespace host {
namespace {

/// The most cycles between two items: half a unit in the last place a cycle
/// then stays below 1e-5 for values up to 4.
constexpr std::int64_t longestPartCycles = 200;

}  // namespace

Feeder::Feeder(const Motion& motion, const Schedule& schedule, std::vector<FedColumn> columns)
    : motion_(motion), schedule_(schedule), columns_(std::move(columns)), counts_(columns_.size()) {
  firstItem_.push_back(0);
  for (std::size_t way = 0; way < motion.times.size(); ++way) {
    const std::int64_t partMs = longestPartCycles * schedule.cycleMs;
    const std::int64_t parts = (knotMs(way + 1) - knotMs(way) + partMs - 1) / partMs;
    firstItem_.push_back(firstItem_.back() + static_cast<std::size_t>(parts));
  }
}

std::int64_t Feeder::knotMs(std::size_t knot) const {
  return knot == 0 ? 0 : std::int64_t{schedule_.leadMs} + motion_.times[knot - 1];
}

// The first point is approached no further than the actuator can go: the lead
// would not suffice for more.
float Feeder::knotValue(std::size_t knot, std::size_t column) const {
  const FedColumn& fed = columns_[column];
  if (knot == 0) {
    return fed.present;
  }
  const float value = motion_.position(knot - 1, column);
  return knot == 1 ? std::clamp(value, fed.minimum, fed.maximum) : value;
}

Feeder::Place Feeder::placeOf(std::size_t item) const {
  const auto next = std::upper_bound(firstItem_.begin(), firstItem_.end(), item);
  const auto way = static_cast<std::size_t>(next - firstItem_.begin()) - 1;
  const auto part = static_cast<std::int64_t>(item - firstItem_[way]);
  return {way, part * longestPartCycles * schedule_.cycleMs};
}

std::int64_t Feeder::itemMs(std::size_t item) const {
  const Place place = placeOf(item);
  return knotMs(place.way) + place.sinceKnotMs;
}

float Feeder::itemValue(std::size_t item, std::size_t column) const {
  const Place place = placeOf(item);
  const float begin = knotValue(place.way, column);
  if (place.sinceKnotMs == 0) {
    return begin;
  }
  const double share = static_cast<double>(place.sinceKnotMs) /
                       static_cast<double>(knotMs(place.way + 1) - knotMs(place.way));
  const double way = static_cast<double>(knotValue(place.way + 1, column)) - begin;
  return static_cast<float>(begin + way * share);
}

void Feeder::feed(TimedCommandManager& commands, std::int64_t timeMs) {
  while (consumed_ < itemCount() && itemMs(consumed_) <= timeMs) {
    ++consumed_;
  }
  const std::size_t end = std::min(consumed_ + windowItems, itemCount());
  for (std::size_t column = 0; column < columns_.size(); ++column) {
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
  if (!commands.AddTimedCommand(columns_[column].name, list, TimedCommand::MERGE)) {
    throw std::logic_error("the name table does not know " + columns_[column].name);
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
