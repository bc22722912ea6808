// Why a streamer cannot take orders.

#include <algorithm>
#include <mutex>

#include "host/engine/streamer.h"
#include "host/motion/density.h"
#include "host/motion/excess.h"

namespace host {
namespace {

bool commands(const ScheduledBatch& batch, int actuator) {
  const std::vector<int>& actuators = batch.commands->actuators;
  return std::find(actuators.begin(), actuators.end(), actuator) != actuators.end();
}

}  // namespace

Streamer::Objection Streamer::findObjection(const std::vector<Order>& orders, bool isStrict) {
  Trials trials;
  Objection objection;
  for (; objection.order < orders.size(); ++objection.order) {
    const Order& order = orders[objection.order];
    if (order.batch.commands->isStop) {
      continue;
    }
    const Columns columns = columnsOf(order);
    objection.fault = findFaultNow(columns, order, trials);
    if (objection.fault.reason == Fault::none && isStrict) {
      objection.fault = findExcessOf(columns, order);
    }
    if (objection.fault.reason != Fault::none) {
      break;
    }
    tryOut(columns, orders, objection.order, trials);
  }
  return objection;
}

/// Of what is due; else why it can never be taken, or not by axes that are held now.
Event Streamer::findFaultNow(const Columns& columns, const Order& order, const Trials& trials) {
  if (order.batch.momentMs.value_or(latestMs_) <= latestMs_ + cycleMs_) {
    return findFault(columns, order, trials);
  }
  for (const Column& column : columns) {
    Density density;
    Event fault = findLasting(column, order, density);
    if (fault.reason != Fault::none) {
      return fault;
    }
  }
  return findHeld(columns, order);
}

Event Streamer::findExcessOf(const Columns& columns, const Order& order) const {
  for (const Column& column : columns) {
    Event fault = findExcess(intakeOf(order, column.axis, column.number), column.points,
                             startBefore(column, order), column.axis.velocityLimit);
    if (fault.reason != Fault::none) {
      return fault;
    }
  }
  return {};
}

/// Where the segment to the first point of a column begins; none where that is not known yet.
std::optional<SegmentStart> Streamer::startBefore(const Column& column, const Order& order) const {
  if (column.points.empty() || order.batch.momentMs.value_or(latestMs_) > latestMs_ + cycleMs_) {
    return std::nullopt;
  }
  const Axis& axis = column.axis;
  const Backlog::Kept kept = Backlog::kept(column.points, order.batch.commands->mode);
  const std::int64_t lastMs = std::min(kept.lastMs, column.points.firstMs() - 1);
  std::optional<Point> before;
  const std::size_t count = std::min(axis.backlog.size(), Backlog::aheadPoints);
  for (std::size_t i = 0; i < count && axis.backlog[i].timeMs <= lastMs; ++i) {
    if (axis.backlog[i].timeMs >= kept.firstMs && !axis.backlog[i].isOfHost) {
      before = axis.backlog[i];
    }
  }
  const std::lock_guard hold(gate_);
  return before ? startAt(*before, axis.backlog.knotOf(*before), latestMs_)
                : timelines_.presentStart(axis);
}

/// Has those that command an axis again find what this one leaves.
void Streamer::tryOut(const Columns& columns, const std::vector<Order>& orders, std::size_t number,
                      Trials& trials) const {
  for (const Column& column : columns) {
    const int actuator = column.axis.index;
    const auto next = orders.begin() + static_cast<std::ptrdiff_t>(number) + 1;
    if (std::any_of(next, orders.end(),
                    [&](const Order& order) { return commands(order.batch, actuator); })) {
      const auto trial = trials.emplace(actuator, column.axis.backlog).first;
      const Order& order = orders[number];
      trial->second.take(column.points, order.batch.commands->mode,
                         intakeOf(order, column.axis, column.number).curve(column.points));
    }
  }
}

/// Why a column can never be taken.
Event Streamer::findLasting(const Column& column, const Order& order, Density& density) const {
  const std::int64_t momentMs = order.batch.momentMs.value_or(latestMs_ + cycleMs_);
  Intake intake = intakeOf(order, column.axis, column.number);
  intake.latestMs = std::max(latestMs_, cycleBefore(momentMs, cycleMs_));
  return intake.findFault(column.points, Backlog(), hal::AttrGeneric(), density);
}

/// Sees how all axes of a batch stand, since it is taken whole or not at all.
Event Streamer::findHeld(const Columns& columns, const Order& order) {
  Event fault{EventKind::refused, Fault::none, latestMs_, order.number};
  GateHold hold(gate_);
  for (const Column& column : columns) {
    timelines_.look(column.axis);
    if (column.axis.isHeld || column.axis.guard.isHeld()) {
      fault.reason = column.axis.isHeld ? Fault::held : Fault::guarded;
      fault.actuator = column.axis.index;
    }
    hold.breathe();
  }
  latestMs_ = cycles_.latestMs;
  return fault;
}

Event Streamer::findFault(const Columns& columns, const Order& order, const Trials& trials) {
  Event fault = findHeld(columns, order);
  if (fault.reason != Fault::none) {
    return fault;
  }
  for (const Column& column : columns) {
    Axis& axis = column.axis;
    hal::AttrGeneric present;
    present.asInt = bitsIn(*axis.command);
    Density density;
    const auto trial = trials.find(axis.index);
    fault = intakeOf(order, axis, column.number)
                .findFault(column.points, trial == trials.end() ? axis.backlog : trial->second,
                           present, density);
    if (fault.reason == Fault::none && !timelines_.canHold(axis, density.inTwoCycles)) {
      fault.reason = Fault::full;
    }
    if (fault.reason != Fault::none) {
      return fault;
    }
    axis.backlog.noteDensity(density.inTwoCycles);
  }
  return {};
}

}  // namespace host
