// What cycles took since the last look, and what others and the guard did.

#include <algorithm>
#include <utility>

#include "host/engine/timelines.h"
#include "host/motion/intake.h"
#include "host/motion/judgement.h"
#include "host/motion/limits.h"
#include "platform/zr/zrcriticalsectionwrite.h"

namespace host {

void Timelines::look(Axis& axis) {
  const Window::Items& items = axis.window.items();
  if (!items.empty()) {
    axis.lastActiveMs = cycles_.latestMs;
  }
  const Held held = heldBy(axis);
  const bool isAsHandedOver = held.items == items.size() &&
                              (items.empty() || held.firstTime == stamp(items.front().timeMs));
  if (!isAsHandedOver) {
    const TakenBy taken = takenSince(axis);
    if (held.items + taken.size() == items.size()) {
      noteAllTaken(axis, taken);
    } else {
      reconcile(axis, taken);
    }
  }
  axis.nextCycle = cycles_.log.count();
  if (axis.backlog.empty()) {
    axis.judge.rest(cycles_.latestMs, listener_);
  }
  notePresent(axis);
  noteExternal(axis);
  noteGuarded(axis);
}

/// Others may have written since the latest cycle, which saw nothing of it.
void Timelines::notePresent(const Axis& axis) {
  const std::int32_t present = bitsIn(*axis.command);
  if (journal_.isKept() && present != axis.written->lastBits) {
    journal_.note(JournalEntry::Kind::write, cycles_.latestMs, axis.index, 0, present);
  }
}

Timelines::Held Timelines::heldBy(const Axis& axis) {
  const ZR::ZRCriticalSectionWrite section(axis.timeline->mutex);
  const CommandList& list = axis.timeline->commandList;
  return {list.size(), list.empty() ? 0 : list.begin()->time};
}

void Timelines::noteAllTaken(Axis& axis, const TakenBy& taken) {
  std::vector<Aim> points;
  for (std::size_t i = 0; i < taken.size(); ++i) {
    takeFront(axis, points);
    const bool isLastOfCycle = i + 1 == taken.size() || taken[i + 1].timeMs != taken[i].timeMs;
    if (isLastOfCycle) {
      noteTaken(axis, taken[i], std::exchange(points, {}));
    }
  }
}

/// The cycle of each item that the cycles since the last look took, by the rule of the
/// library, if nobody else pushed or cleared.
Timelines::TakenBy Timelines::takenSince(const Axis& axis) const {
  const Window::Items& items = axis.window.items();
  TakenBy taken;
  const CycleLog& log = cycles_.log;
  for (std::uint64_t i = std::max(axis.nextCycle, log.oldest()); i < log.count(); ++i) {
    const Cycle& cycle = log.at(i);
    const std::size_t first = taken.size();
    const std::size_t count =
        reachedCount(items.size() - first, cycle.timeMs,
                     [&](std::size_t position) { return items[first + position].timeMs; });
    taken.insert(taken.end(), count, cycle);
  }
  return taken;
}

/// The front item was taken; if it is a point, it is added.
void Timelines::takeFront(Axis& axis, std::vector<Aim>& taken) {
  const WindowItem item = axis.window.items().front();
  axis.window.popFront();
  ++released_;
  if (item.isPoint()) {
    const Point point = axis.backlog.front();
    taken.push_back({point, axis.backlog.knotOf(point)});
    axis.backlog.popFront();
  }
}

/// A cycle took these points. The library goes on from the last of them, or from the cycle
/// before when it came too late.
void Timelines::noteTaken(Axis& axis, const Cycle& cycle, const std::vector<Aim>& taken) {
  if (taken.empty()) {
    return;
  }
  if (cycle.timeMs <= axis.guard.heldSinceMs) {
    const Backlog& backlog = axis.backlog;
    const auto next = backlog.empty()
                          ? std::nullopt
                          : std::optional<Aim>({backlog.front(), backlog.knotOf(backlog.front())});
    axis.judge.reach({cycle.timeMs, cycle.previousMs, axis.start, taken, next}, listener_);
  }
  const Aim& last = taken.back();
  axis.start = startAt(last.point, last.knot, cycle.previousMs);
  axis.lastReachedMs = cycle.timeMs;
  std::vector<Point> points;
  for (const Aim& aim : taken) {
    if (!aim.point.isOfHost) {
      axis.target = aim.point;
      points.push_back(aim.point);
    }
  }
  tellReached(axis, cycle, points);
}

/// What the library still takes of an axis that the guard holds is not reached.
void Timelines::tellReached(Axis& axis, const Cycle& cycle, const std::vector<Point>& points) {
  if (cycle.timeMs >= axis.guard.heldSinceMs) {
    tellCleared(clearedEvent(axis, cycle.timeMs, Event::byGuard), {{points}, {}}, axis.counts,
                listener_);
    return;
  }
  axis.counts.reached += points.size();
  tellRuns({EventKind::reached, Fault::none, cycle.timeMs, 0, axis.index}, points, listener_);
}

/// Of the axis, at this time, by whom.
Event Timelines::clearedEvent(const Axis& axis, std::int64_t timeMs, std::uint32_t byWhom) {
  Event cleared{EventKind::cleared, Fault::none, timeMs, 0, axis.index};
  cleared.byBatch = byWhom;
  return cleared;
}

/// Others may push and clear meanwhile: they hold the lock of the timelines alone.
std::vector<TimedCommand::commandItem> Timelines::copyOf(const Axis& axis) {
  const ZR::ZRCriticalSectionWrite section(axis.timeline->mutex);
  const CommandList& list = axis.timeline->commandList;
  return {list.begin(), list.end()};
}

/// For each item of the window, whether the timeline holds it; others may have pushed between.
std::vector<bool> Timelines::heldItems(const Axis& axis) const {
  const Window::Items& items = axis.window.items();
  std::vector<bool> isHeld(items.size(), false);
  std::size_t position = 0;
  for (const TimedCommand::commandItem& held : copyOf(axis)) {
    std::size_t candidate = position;
    while (candidate < items.size() && !(stamp(items[candidate].timeMs) == held.time &&
                                         isSameValue(items[candidate].value, held.value))) {
      ++candidate;
    }
    if (candidate < items.size()) {
      isHeld[candidate] = true;
      position = candidate + 1;
    }
  }
  return isHeld;
}

/// Others have pushed or cleared. An item that the timeline does not hold was reached, if it
/// was due, and else cleared by others.
void Timelines::reconcile(Axis& axis, const TakenBy& taken) {
  const std::vector<bool> isHeld = heldItems(axis);
  std::size_t gone = 0;
  bool cleared = false;
  for (std::size_t i = 0; i < isHeld.size(); ++i) {
    const std::size_t at = i - gone;
    if (isHeld[i]) {
      continue;
    }
    ++gone;
    if (i < taken.size() && at == 0) {
      std::vector<Aim> reached;
      takeFront(axis, reached);
      noteTaken(axis, taken[i], reached);
      continue;
    }
    std::vector<Point> points;
    const Window::Items& items = axis.window.items();
    if (items[at].isPoint()) {
      const auto number = static_cast<std::size_t>(
          std::count_if(items.begin(), items.begin() + static_cast<std::ptrdiff_t>(at),
                        [](const WindowItem& each) { return each.isPoint(); }));
      points.push_back(axis.backlog[number]);
      axis.backlog.erase(number);
    }
    axis.window.erase(at);
    ++released_;
    cleared = true;
    tellCleared(clearedEvent(axis, cycles_.latestMs, Event::byOthers), {{points}, {}}, axis.counts,
                listener_);
  }
  if (cleared) {
    restart(axis, Event::byOthers);
    rebuild(axis);
  }
}

/// Others wrote the register: the library starts from there, and so do samples.
void Timelines::noteExternal(Axis& axis) {
  const std::uint64_t writes = axis.externalWrites;
  if (writes == axis.externalWritesTold) {
    return;
  }
  Event external{EventKind::external, Fault::none, axis.lastExternalMs, 0, axis.index};
  external.count = writes - axis.externalWritesTold;
  axis.externalWritesTold = writes;
  listener_.tell(external, nullptr);
  if (axis.actuator.interpolates && !axis.backlog.empty() &&
      axis.lastExternalMs > axis.lastReachedMs && !journal_.isFollowed()) {
    takeUp(axis);
  }
}

void Timelines::takeUp(Axis& axis) {
  journal_.note(JournalEntry::Kind::moved, cycles_.latestMs, axis.index);
  if (axis.backlog.isStopping()) {
    axis.backlog.popFront();
  }
  restart(axis, Event::byOthers);
  rebuild(axis);
}

/// Tells of the guard, and takes everything away from an axis that it holds.
void Timelines::noteGuarded(Axis& axis) {
  const GuardRecord& guard = axis.guard;
  if (const std::uint64_t touches = guard.touches; touches != axis.touchesTold) {
    Event guarded{EventKind::guarded, guard.isHeld() ? Fault::guarded : Fault::none, guard.latestMs,
                  Event::byOthers, axis.index};
    guarded.count = touches - std::exchange(axis.touchesTold, touches);
    guarded.amount = guard.speed;
    listener_.tell(guarded, nullptr);
  }
  if (guard.isHeld() && !guard.isCleared && !journal_.isFollowed()) {
    journal_.note(JournalEntry::Kind::clear, cycles_.latestMs, axis.index);
    clear(axis);
  }
}

void Timelines::clear(Axis& axis) {
  if (!axis.backlog.empty()) {
    const Point& first = axis.backlog.front();
    judge(axis, {first, axis.backlog.knotOf(first)});
  }
  tellCleared(clearedEvent(axis, cycles_.latestMs, Event::byGuard), axis.backlog.removeAll(),
              axis.counts, listener_);
  const std::size_t held = axis.window.items().size();
  axis.window.clear();
  axis.target.reset();
  axis.judge.begin(cycles_.latestMs, restingAt(cycles_.latestMs, axis.commanded()), Event::byGuard);
  replace(axis, held);
  axis.guard.isCleared = true;
}

bool Timelines::needsCare(const Axis& axis, std::int64_t latestMs) const {
  if (axis.guard.touches != axis.touchesTold) {
    return true;
  }
  if (axis.isIdle()) {
    return axis.judge.isMoving();
  }
  const Window::Items& items = axis.window.items();
  return (!items.empty() && items.front().timeMs <= latestMs) ||
         axis.externalWrites != axis.externalWritesTold ||
         axis.window.isShort(pathOf(axis, latestMs));
}

}  // namespace host
