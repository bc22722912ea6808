#include "host/engine/timelines.h"

#include <algorithm>
#include <utility>

#include "host/motion/limits.h"

namespace host {
namespace {

/// The common nodes that axes may borrow; the others are for the window that replaces one.
constexpr std::size_t mostBorrowed = NodeReserve::commonNodes / 2;

bool isSame(const WindowItem& one, const WindowItem& other) {
  return one.timeMs == other.timeMs && isSameValue(one.value, other.value);
}

/// The length of the common beginning.
std::size_t commonBeginning(const Window::Items& one, const Window::Items& other) {
  std::size_t common = 0;
  const std::size_t most = std::min(one.size(), other.size());
  while (common < most && isSame(one[common], other[common])) {
    ++common;
  }
  return common;
}

}  // namespace

Timelines::Timelines(const CycleState& cycles, Listener& listener, Journal& journal,
                     std::int64_t cycleMs, std::uint32_t startTick)
    : cycles_(cycles),
      listener_(listener),
      journal_(journal),
      cycleMs_(cycleMs),
      startTick_(startTick) {}

void Timelines::endLoan(Axis& axis) {
  if (axis.backlog.empty()) {
    borrowed_ -= std::exchange(axis.borrowed, 0);
  }
}

bool Timelines::canHold(Axis& axis, std::size_t items) {
  const std::size_t own = reserve_.ownNodes(numberOf(axis));
  const std::size_t borrows = std::max(axis.borrowed, items > own ? items - own : 0);
  if (borrowed_ - axis.borrowed + borrows > mostBorrowed) {
    return false;
  }
  borrowed_ += borrows - axis.borrowed;
  axis.borrowed = borrows;
  return true;
}

void Timelines::fillUp(Axis& axis) {
  if (axis.window.items().empty()) {
    rebuild(axis);
    return;
  }
  const std::size_t held = axis.window.items().size();
  if (axis.window.isShort(pathOf(axis))) {
    axis.window.fill(pathOf(axis), mostItems(axis, held));
  }
  if (axis.window.items().size() > held && !merge(axis, held)) {
    axis.window = freshWindow(axis);
    replace(axis, held);
  }
}

void Timelines::rebuild(Axis& axis) {
  Window fresh = freshWindow(axis);
  const std::size_t held = axis.window.items().size();
  const std::size_t common = commonBeginning(axis.window.items(), fresh.items());
  // Items with equal times are handed over together: pushed later, one would come first.
  const bool splitsGroup = common > 0 && common < fresh.items().size() &&
                           fresh.items()[common].timeMs == fresh.items()[common - 1].timeMs;
  axis.window = std::move(fresh);
  if (common < held || splitsGroup || !merge(axis, common)) {
    replace(axis, held);
  }
}

Window Timelines::freshWindow(const Axis& axis) const {
  Window fresh;
  const std::size_t most = mostItems(axis, 0);
  if (most > 0 && needsAnchor(axis)) {
    fresh.append(
        {cycles_.latestMs, hal::AttrGeneric(axis.command->loadFloat()), WindowItem::Kind::anchor});
  }
  fresh.fill(pathOf(axis), most);
  return fresh;
}

/// How many items the window may hold while `held` of them stay in the timeline: as many as
/// there are nodes for, without those that are kept for other axes.
std::size_t Timelines::mostItems(const Axis& axis, std::size_t held) const {
  const std::size_t common = reserve_.commonSpare();
  const std::size_t kept = std::min(common, mostBorrowed);
  const std::size_t guaranteed = reserve_.ownNodes(numberOf(axis)) + axis.borrowed;
  const std::size_t available = held + reserve_.available(numberOf(axis));
  return std::min(available, std::max(guaranteed, available - kept));
}

/// On an empty timeline whose last command lies further back than stamps compare, the
/// library would take the next one at once.
bool Timelines::needsAnchor(const Axis& axis) const {
  return axis.actuator.interpolates && axis.window.items().empty() && !axis.backlog.empty() &&
         heldBy(axis).items == 0 && axis.backlog.front().timeMs > cycles_.latestMs &&
         axis.command->loadFloat() == axis.timeline->currentValue &&
         cycles_.latestMs - axis.lastActiveMs > furthestAheadMs;
}

/// The timeline holds so many items of the window; the others follow. False when others
/// have left no room for them: then nothing has changed.
bool Timelines::merge(const Axis& axis, std::size_t held) {
  return axis.window.items().size() == held || push(axis, held, TimedCommand::MERGE);
}

/// Replaces all that the timeline holds, which includes items of others.
void Timelines::replace(const Axis& axis, std::size_t held) {
  push(axis, 0, TimedCommand::REPLACE);
  released_ += held;
  while (takeBackSome()) {
  }
}

/// False when the timeline refused the items.
bool Timelines::push(const Axis& axis, std::size_t from, TimedCommand::commandType mode) {
  const Window::Items& items = axis.window.items();
  CommandList nodes;
  reserve_.lend(numberOf(axis), items.size() - from, nodes);
  assign(nodes, items, from);
  axis.timeline->pushTimedCommand(nodes, mode);
  const bool isTaken = nodes.empty();
  reserve_.giveBack(nodes);
  return isTaken;
}

/// Lists items with equal stamps in reverse, since the push reverses them.
void Timelines::assign(CommandList& nodes, const Window::Items& items, std::size_t from) const {
  auto node = nodes.begin();
  for (std::size_t first = from; first < items.size();) {
    std::size_t end = first + 1;
    while (end < items.size() && items[end].timeMs == items[first].timeMs) {
      ++end;
    }
    for (std::size_t i = end; i-- > first; ++node) {
      *node = {items[i].value, stamp(items[i].timeMs)};
    }
    first = end;
  }
}

bool Timelines::takeBackSome() {
  constexpr std::size_t portion = 64;
  const std::size_t taken = std::min(released_, portion);
  reserve_.takeBack(taken);
  released_ -= taken;
  return released_ > 0;
}

}  // namespace host
