#include "host/engine/streamer.h"

#include <algorithm>
#include <mutex>
#include <numeric>

#include "host/motion/density.h"
#include "host/motion/stop.h"

namespace host {
namespace {

constexpr std::size_t mostInTimeline = TimedCommand::MAX_TIMELINE_ITEMS;

/// Of an axis whose points lie no closer than the cycles.
std::size_t usualNodes(std::int64_t cycleMs) {
  const auto cyclesInWindow = static_cast<std::size_t>(windowMs / cycleMs);
  constexpr std::size_t due = 2;
  return std::max(windowItems, cyclesInWindow) + refillItems + due;
}

}  // namespace

Streamer::Streamer(std::deque<Axis>& axes, Gate& gate, CycleState& cycles, Teller& teller,
                   Journal& journal, std::int64_t cycleMs, std::uint32_t startTick)
    : axes_(axes),
      gate_(gate),
      cycles_(cycles),
      teller_(teller),
      journal_(journal),
      cycleMs_(cycleMs),
      timelines_(cycles, teller, journal, cycleMs, startTick),
      latestMs_(-cycleMs),
      boundMs_(-cycleMs) {}

Streamer::~Streamer() {
  for (const Axis& axis : axes_) {
    timelines_.empty(axis);
  }
}

void Streamer::start(const std::vector<std::size_t>& nodes) {
  knownNodes_.assign(axes_.size(), refillItems);
  drainInbox();
  for (std::size_t i = 0; i < axes_.size(); ++i) {
    const std::size_t known = std::max(knownNodes_[i], i < nodes.size() ? nodes[i] : 0);
    knownNodes_[i] = std::clamp(known, usualNodes(cycleMs_), mostInTimeline);
  }
  JournalEntry laidIn{JournalEntry::Kind::nodes, latestMs_};
  laidIn.numbers = knownNodes_;
  journal_.note(std::move(laidIn));
  timelines_.layInNodes(std::exchange(knownNodes_, {}));
  pass();
}

void Streamer::pass() {
  latestMs_ = seeLatest();
  const std::int64_t notedMs = latestMs_;
  noteCycles();
  drainInbox();
  tellPace();
  if (isEnding_) {
    abandon();
  }
  handOverDue();
  freeFromGuard();
  careForTimelines();
  publish();
  journal_.passOn(notedMs);
  teller_.passOn();
}

void Streamer::handOverDue() {
  while (!waiting_.empty() && waiting_.begin()->first.first <= latestMs_ + cycleMs_) {
    handOver(waiting_.begin()->second);
    waiting_.erase(waiting_.begin());
  }
}

void Streamer::drainInbox() {
  for (Inbox::Arrival& arrival : inbox_.takeAll()) {
    arrive({std::move(arrival.batch), arrival.number});
  }
}

/// Refuses what can never be taken, whatever else will wait by then.
void Streamer::arrive(Order waiting) {
  const Columns columns = columnsOf(waiting);
  for (const Column& column : columns) {
    column.axis.counts.points += column.points.size();
  }
  for (const Column& column : columns) {
    Density density;
    const Event fault = findLasting(column, waiting, density);
    if (fault.reason != Fault::none) {
      refuse(columns, fault);
      return;
    }
    if (!knownNodes_.empty()) {
      // More than the usual ones where the batches that are known have denser points.
      knownNodes_[static_cast<std::size_t>(column.axis.index)] += density.inWindow;
    }
  }
  enqueue(std::move(waiting));
}

/// What is due already goes in the order of arrival.
void Streamer::enqueue(Order order) {
  const Moment moment{std::max(order.batch.momentMs.value_or(latestMs_), latestMs_ + cycleMs_),
                      order.number};
  waiting_.emplace(moment, std::move(order));
}

std::int64_t Streamer::seeLatest() {
  const std::lock_guard hold(gate_);
  return cycles_.latestMs;
}

void Streamer::tellPace() {
  PaceCount pace;
  {
    const std::lock_guard hold(gate_);
    pace = cycles_.pace;
  }
  if (pace.stalls > paceTold_.stalls) {
    Event stalled{EventKind::stalled, Fault::none, latestMs_};
    stalled.count = pace.stalls - paceTold_.stalls;
    stalled.amount = static_cast<double>(pace.stalledMs - paceTold_.stalledMs);
    teller_.tell(stalled, nullptr);
  }
  if (pace.stands > paceTold_.stands) {
    Event starved{EventKind::starved, Fault::none, latestMs_};
    starved.count = pace.stands - paceTold_.stands;
    teller_.tell(starved, nullptr);
  }
  paceTold_ = pace;
}

void Streamer::handOver(const Order& waiting) {
  const Columns columns = columnsOf(waiting);
  const Event fault = waiting.batch.commands->isStop ? Event() : findFault(columns, waiting, {});
  if (fault.reason != Fault::none) {
    refuse(columns, fault);
    return;
  }
  tellLateHandOver(waiting);
  JournalEntry entry{JournalEntry::Kind::batch, latestMs_};
  entry.number = waiting.number;
  entry.batch = waiting.batch;
  journal_.note(std::move(entry));
  takeOn(columns, waiting);
}

void Streamer::takeOn(const Columns& columns, const Order& waiting) {
  std::vector<Taken> taken(columns.size());
  for (std::size_t i = 0; i < columns.size(); ++i) {
    prepare(columns[i], waiting, taken[i]);
  }
  {
    GateHold hold(gate_);
    for (std::size_t i = 0; i < columns.size(); ++i) {
      takeOn(columns[i], waiting, taken[i]);
      hold.breathe();
    }
  }
  for (std::size_t i = 0; i < columns.size(); ++i) {
    tellTaken(columns[i], taken[i], waiting);
  }
}

/// Without the gate: only a batch of few points is taken in while a cycle may wait.
void Streamer::prepare(const Column& column, const Order& waiting, Taken& taken) const {
  constexpr std::size_t fewPoints = 64;
  taken.curve = intakeOf(waiting, column.axis, column.number).curve(column.points);
  if (column.points.size() > fewPoints) {
    taken.merge.emplace(column.axis.backlog, column.axis.window.points(), column.points,
                        waiting.batch.commands->mode, taken.curve);
  }
}

Streamer::Columns Streamer::columnsOf(const Order& waiting) {
  Columns columns;
  const std::size_t count = waiting.batch.commands->actuators.size();
  columns.reserve(count);
  for (std::size_t number = 0; number < count; ++number) {
    const int actuator = waiting.batch.commands->actuators[number];
    if (isCleared(waiting, actuator)) {
      continue;
    }
    Axis& axis = axes_[static_cast<std::size_t>(actuator)];
    columns.push_back({axis, number, intakeOf(waiting, axis, number).points()});
  }
  return columns;
}

Intake Streamer::intakeOf(const Order& waiting, const Axis& axis, std::size_t column) const {
  return {waiting.batch, waiting.number, column, axis.actuator, latestMs_, cycleMs_};
}

void Streamer::refuse(const Columns& columns, Event fault) {
  for (const Column& column : columns) {
    column.axis.counts.refused += column.points.size();
    timelines_.endLoan(column.axis);
    fault.count += column.points.size();
  }
  teller_.tell(fault, nullptr);
}

/// Late is what machine time had to stand for, or what comes after its moment.
void Streamer::tellLateHandOver(const Order& waiting) {
  if (!waiting.batch.momentMs) {
    return;
  }
  const std::int64_t momentMs = *waiting.batch.momentMs;
  const std::lock_guard hold(gate_);
  if (cycles_.latestMs >= momentMs || cycles_.heldAtMs == momentMs - 1) {
    Event late{EventKind::handedLate, Fault::none, cycles_.latestMs, waiting.number};
    late.amount = static_cast<double>(std::max<std::int64_t>(cycles_.latestMs - momentMs, 0));
    teller_.tell(late, nullptr);
  }
}

/// Under the gate.
void Streamer::takeOn(const Column& column, const Order& waiting, Taken& taken) {
  Axis& axis = column.axis;
  timelines_.look(axis);
  journal_.note(JournalEntry::Kind::take, cycles_.latestMs, axis.index, waiting.number);
  const CommandBatch& commands = *waiting.batch.commands;
  if (commands.isStop) {
    taken.removed = stop(axis, waiting.number);
  } else {
    taken.removed = change(axis, waiting.number, [&] {
      return taken.merge ? taken.merge->applyTo(axis.backlog)
                         : axis.backlog.take(column.points, commands.mode, taken.curve);
    });
  }
  timelines_.endLoan(axis);
  taken.latestMs = cycles_.latestMs;
}

/// Under the gate, after a look. Returns what the change of the backlog removes.
template <typename Change>
Backlog::Removed Streamer::change(Axis& axis, std::uint32_t byBatch, const Change& change) {
  const bool hadFirst = !axis.backlog.empty();
  const Point first = hadFirst ? axis.backlog.front() : Point();
  const Knot firstKnot = axis.backlog.knotOf(first);
  Backlog::Removed removed = change();
  const bool hasFirst = !axis.backlog.empty();
  const bool goesOn = hadFirst && hasFirst && axis.backlog.front().isSamePointAs(first);
  if (!goesOn && (hadFirst || hasFirst)) {
    if (hadFirst) {
      timelines_.judge(axis, {first, firstKnot});
    }
    timelines_.restart(axis, byBatch);
  }
  if (!hasFirst && hadFirst) {
    axis.target.reset();
  }
  timelines_.rebuild(axis);
  if (axis.guard.isHeld()) {
    timelines_.clear(axis);
  }
  // No cycle goes beyond what the timeline holds from now on.
  boundMs_ = std::min(boundMs_.load(), timelines_.boundMs(axis, cycles_.latestMs));
  return removed;
}

/// Under the gate, after a look: brings an axis to rest, straight on. The point in which it
/// ends is the host's.
Backlog::Removed Streamer::stop(Axis& axis, std::uint32_t batch) {
  if (!Timelines::isOnItsWay(axis)) {
    return {};
  }
  if (batch >= Event::byCommander) {
    journal_.note(JournalEntry::Kind::stop, cycles_.latestMs, axis.index, batch);
  }
  std::vector<Point> points;
  if (const std::optional<Point> rest = timelines_.restOf(axis, batch)) {
    points.push_back(*rest);
  }
  Backlog::Removed removed = change(axis, Event::byOthers, [&] {
    return axis.backlog.take(Rounds(std::move(points)), TimedCommand::REPLACE, stopCurve());
  });
  timelines_.removeOthers(axis);
  axis.target.reset();
  return removed;
}

/// What waits is left, and told as cleared.
void Streamer::abandon() {
  std::vector<int> all(axes_.size());
  std::iota(all.begin(), all.end(), 0);
  clearPlanned(all, Event::byHost);
  waiting_.clear();
  stop(all, Event::byHost, false);
}

void Streamer::tellTaken(const Column& column, const Taken& taken, const Order& waiting) {
  Event cleared{EventKind::cleared, Fault::none, taken.latestMs, 0, column.axis.index};
  cleared.byBatch = waiting.number;
  tellCleared(cleared, taken.removed, column.axis.counts, teller_);
  latestMs_ = taken.latestMs;
  intakeOf(waiting, column.axis, column.number)
      .tellTaken(column.points, column.axis.counts, teller_);
}

void Streamer::careForTimelines() {
  inNeed_.clear();
  for (Axis& axis : axes_) {
    if (axis.isHeld || timelines_.needsCare(axis, latestMs_)) {
      inNeed_.push_back(&axis);
    }
  }
  GateHold hold(gate_);
  for (Axis* const axis : inNeed_) {
    timelines_.look(*axis);
    if (axis->isHeld && !journal_.isFollowed()) {
      // Others may have queued commands.
      stop(*axis, Event::byHold);
    }
    timelines_.fillUp(*axis);
    timelines_.endLoan(*axis);
    hold.breathe();
  }
  while (timelines_.takeBackSome()) {
    hold.breathe();
  }
}

void Streamer::publish() {
  bool idle = waiting_.empty();
  std::int64_t bound = idle ? unboundedMs : waiting_.begin()->first.first - 1;
  const std::int64_t latest = seeLatest();
  for (Axis& axis : axes_) {
    axis.backlog.dropPastCurves();
    if (!axis.isIdle()) {
      idle = false;
      bound = std::min(bound, timelines_.boundMs(axis, latest));
    }
    idle = idle && !axis.judge.isMoving();
  }
  boundMs_ = stands_ ? std::min(bound, latest) : bound;
  idle_ = idle && areAxesAtRest();
}

/// Others may have queued commands of their own.
bool Streamer::areAxesAtRest() {
  const std::lock_guard hold(gate_);
  return std::all_of(axes_.begin(), axes_.end(),
                     [](const Axis& axis) { return Timelines::isAtRest(axis); });
}

}  // namespace host
