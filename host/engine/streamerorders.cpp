// What clients ask a streamer for.

#include <algorithm>

#include "host/engine/streamer.h"

namespace host {
namespace {

struct Deaf : Listener {
  void tell(const Event& /*event*/, const Point* /*points*/) override {}
};

}  // namespace

std::int64_t Streamer::nextMs() {
  latestMs_ = seeLatest();
  handOverDue();
  return latestMs_ + cycleMs_;
}

std::vector<PointCounts> Streamer::countsOf(const Order& order) const {
  std::vector<PointCounts> counts;
  const std::vector<int>& actuators = order.batch.commands->actuators;
  for (std::size_t column = 0; column < actuators.size(); ++column) {
    const Axis& axis = axes_[static_cast<std::size_t>(actuators[column])];
    const Intake intake = intakeOf(order, axis, column);
    const Rounds points = intake.points();
    counts.emplace_back().points = points.size();
    Deaf deaf;
    intake.tellTaken(points, counts.back(), deaf);
  }
  return counts;
}

void Streamer::take(const std::vector<Order>& orders) {
  for (const Order& order : orders) {
    for (const Column& column : columnsOf(order)) {
      column.axis.counts.points += column.points.size();
    }
    enqueue(order);
  }
  handOverDue();
}

void Streamer::refuse(const Order& order, Event fault) {
  const Columns columns = columnsOf(order);
  for (const Column& column : columns) {
    column.axis.counts.points += column.points.size();
  }
  fault.kind = EventKind::refused;
  fault.batch = order.number;
  fault.timeMs = latestMs_;
  fault.count = 0;
  refuse(columns, fault);
}

void Streamer::stop(const std::vector<int>& axes, std::uint32_t byWhom, bool planned) {
  std::vector<Backlog::Removed> removed;
  removed.reserve(axes.size());
  {
    GateHold hold(gate_);
    for (const int actuator : axes) {
      Axis& axis = axes_[static_cast<std::size_t>(actuator)];
      timelines_.look(axis);
      if (byWhom == Event::byHost && !axis.backlog.empty() && !axis.backlog.isStopping()) {
        axis.lastLeft = axis.backlog.last();
      }
      removed.push_back(stop(axis, byWhom));
      timelines_.endLoan(axis);
      hold.breathe();
    }
    latestMs_ = cycles_.latestMs;
  }
  for (std::size_t i = 0; i < axes.size(); ++i) {
    Event cleared{EventKind::cleared, Fault::none, latestMs_, 0, axes[i]};
    cleared.byBatch = byWhom;
    Axis& axis = axes_[static_cast<std::size_t>(axes[i])];
    const std::uint64_t before = axis.counts.cleared;
    tellCleared(cleared, removed[i], axis.counts, teller_);
    axis.leftAtEnd += byWhom == Event::byHost ? axis.counts.cleared - before : 0;
  }
  if (planned) {
    clearPlanned(axes, byWhom);
  }
}

void Streamer::clearPlanned(const std::vector<int>& axes, std::uint32_t byWhom) {
  std::vector<bool> concerned(axes_.size(), false);
  for (const int actuator : axes) {
    concerned[static_cast<std::size_t>(actuator)] = true;
  }
  for (auto& [moment, order] : waiting_) {
    for (const int actuator : order.batch.commands->actuators) {
      if (concerned[static_cast<std::size_t>(actuator)] && !isCleared(order, actuator)) {
        clearColumn(order, actuator, byWhom);
      }
    }
  }
}

bool Streamer::isCleared(const Order& order, int actuator) {
  return std::count(order.cleared.begin(), order.cleared.end(), actuator) > 0;
}

void Streamer::clearColumn(Order& order, int actuator, std::uint32_t byWhom) {
  order.cleared.push_back(actuator);
  Event cleared{EventKind::cleared, Fault::none, latestMs_, order.number, actuator};
  cleared.byBatch = byWhom;
  cleared.count = order.batch.commands->size();
  if (cleared.count > 0) {
    Axis& axis = axes_[static_cast<std::size_t>(actuator)];
    axis.counts.cleared += cleared.count;
    axis.leftAtEnd += byWhom == Event::byHost ? cleared.count : 0;
    teller_.tell(cleared, nullptr);
  }
}

void Streamer::dismiss(Order& order, int actuator, std::uint32_t byWhom) {
  axes_[static_cast<std::size_t>(actuator)].counts.points += order.batch.commands->size();
  clearColumn(order, actuator, byWhom);
}

void Streamer::latch(const std::vector<int>& axes) {
  JournalEntry entry{JournalEntry::Kind::hold, latestMs_};
  entry.actuators = axes;
  journal_.note(std::move(entry));
  for (const int actuator : axes) {
    axes_[static_cast<std::size_t>(actuator)].isHeld = true;
    releasing_.erase(std::remove(releasing_.begin(), releasing_.end(), actuator), releasing_.end());
  }
}

void Streamer::release(const std::vector<int>& axes) {
  JournalEntry entry{JournalEntry::Kind::release, latestMs_};
  entry.actuators = axes;
  journal_.note(std::move(entry));
  for (const int actuator : axes) {
    axes_[static_cast<std::size_t>(actuator)].isHeld = false;
  }
  if (!journal_.isFollowed()) {
    releasing_.insert(releasing_.end(), axes.begin(), axes.end());
    freeFromGuard();
  }
}

void Streamer::freeFromGuard() {
  if (releasing_.empty()) {
    return;
  }
  GateHold hold(gate_);
  const auto isFree = [&](int actuator) {
    Axis& axis = axes_[static_cast<std::size_t>(actuator)];
    timelines_.look(axis);
    hold.breathe();
    if (axis.guard.isRamping) {
      return false;
    }
    if (axis.guard.isHeld()) {
      journal_.note(JournalEntry::Kind::freed, cycles_.latestMs, actuator);
    }
    axis.guard.heldSinceMs = GuardRecord::never;
    return true;
  };
  releasing_.erase(std::remove_if(releasing_.begin(), releasing_.end(), isFree), releasing_.end());
}

void Streamer::copyAxisStates(std::vector<CommandState::AxisState>& states) {
  constexpr std::size_t lookedAtOnce = 64;
  states.clear();
  {
    GateHold hold(gate_);
    for (const Axis& axis : axes_) {
      states.push_back({nobody, axis.isHeld, axis.guard.isHeld(), axis.counts});
      if (states.size() % lookedAtOnce == 0) {
        hold.breathe();
      }
    }
  }
  for (std::size_t i = 0; i < states.size(); ++i) {
    const Backlog& backlog = axes_[i].backlog;
    if (!backlog.empty()) {
      states[i].target = backlog.last();
    }
  }
}

}  // namespace host
