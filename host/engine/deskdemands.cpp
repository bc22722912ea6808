// What is asked for at a desk beside batches.

#include <algorithm>
#include <memory>
#include <set>
#include <utility>

#include "host/engine/desk.h"

namespace host {
namespace {

CommandAnswer denied(Denial denial) {
  CommandAnswer answer;
  answer.denial = std::move(denial);
  return answer;
}

CommandAnswer denied(Fault reason) {
  Denial denial;
  denial.reason = reason;
  return denied(std::move(denial));
}

}  // namespace

CommandAnswer Desk::doneWith(std::vector<int> axes) const {
  CommandAnswer answer;
  answer.timeMs = streamer_.latestMs();
  answer.axes = std::move(axes);
  return answer;
}

void Desk::noteStopped(const std::vector<int>& axes) {
  for (const int actuator : axes) {
    stopped_[static_cast<std::size_t>(actuator)] = fulfilling_;
  }
}

CommandAnswer Desk::doStop(const std::vector<int>& axes, CommanderId commander) {
  if (commander != nobody && !commanders_.renew(commander, clockMs_)) {
    return denied(Fault::unknown);
  }
  for (const int actuator : axes) {
    if (const CommanderId owner = commanders_.ownerOf(actuator); owner != commander) {
      return denied(ownedBy(actuator, owner));
    }
  }
  streamer_.stop(axes, Event::byStop, false);
  noteStopped(axes);
  tell(EventKind::stopped, axes);
  return doneWith(axes);
}

CommandAnswer Desk::doHold(const std::vector<int>& axes) {
  streamer_.latch(axes);
  streamer_.stop(axes, Event::byHold, true);
  tell(EventKind::held, axes);
  return doneWith(axes);
}

/// Batches that were asked for before do not move what it frees.
CommandAnswer Desk::doRelease(const std::vector<int>& axes) {
  streamer_.release(axes);
  noteStopped(axes);
  tell(EventKind::released, axes);
  return doneWith(axes);
}

CommandAnswer Desk::doEnrol(const Enrolment& enrolment) {
  if (const auto obstacle = commanders_.obstacleTo(enrolment)) {
    return denied(ownedBy(obstacle->actuator, obstacle->owner));
  }
  std::vector<Commanders::Owned> losses;
  noteEnrolled(enrolment);
  const CommanderId id = commanders_.enrol(enrolment, clockMs_, losses);
  streamer_.stop(enrolment.axes, Event::byCommander, true);
  tellEnrolled(id, enrolment, losses);
  CommandAnswer answer = doneWith(enrolment.axes);
  answer.commander = id;
  return answer;
}

void Desk::noteEnrolled(const Enrolment& enrolment) {
  JournalEntry entry{JournalEntry::Kind::enrol, streamer_.latestMs()};
  entry.enrolment = std::make_shared<const Enrolment>(enrolment);
  journal_.note(std::move(entry));
}

void Desk::tellEnrolled(CommanderId id, const Enrolment& enrolment,
                        const std::vector<Commanders::Owned>& losses) {
  for (const Commanders::Owned& lost : losses) {
    tellLost(lost.owner, Fault::owned, lost.actuator, 1);
  }
  tellRegistered(id, enrolment.axes.size());
}

CommandAnswer Desk::doRenew(CommanderId commander, std::optional<std::int64_t> leaseMs) {
  if (!commanders_.renew(commander, clockMs_, leaseMs)) {
    return denied(Fault::unknown);
  }
  CommandAnswer answer = doneWith(commanders_.find(commander)->enrolment.axes);
  answer.commander = commander;
  return answer;
}

CommandAnswer Desk::lose(CommanderId commander, Fault why) {
  if (commanders_.find(commander) == nullptr) {
    return denied(Fault::unknown);
  }
  JournalEntry entry{JournalEntry::Kind::lose, streamer_.latestMs()};
  entry.number = commander;
  entry.why = why;
  journal_.note(std::move(entry));
  const Commanders::Commander lost = commanders_.remove(commander);
  if (!journal_.isFollowed() && lost.enrolment.onLoss == LossRule::stop) {
    streamer_.stop(lost.enrolment.axes, Event::byCommander, true);
  }
  ledger_.forget(commander);
  tellLost(commander, why, -1, lost.enrolment.axes.size());
  CommandAnswer answer = doneWith(lost.enrolment.axes);
  answer.commander = commander;
  return answer;
}

void Desk::follow(const JournalEntry& entry) {
  if (entry.kind == JournalEntry::Kind::hold) {
    streamer_.latch(entry.actuators);
    tell(EventKind::held, entry.actuators);
  } else if (entry.kind == JournalEntry::Kind::release) {
    streamer_.release(entry.actuators);
    tell(EventKind::released, entry.actuators);
  } else if (entry.kind == JournalEntry::Kind::enrol) {
    std::vector<Commanders::Owned> losses;
    const CommanderId id = commanders_.enrol(*entry.enrolment, clockMs_, losses);
    tellEnrolled(id, *entry.enrolment, losses);
  } else {
    lose(entry.number, entry.why);
  }
}

void Desk::judgeLeases() {
  const bool mayJudge = leaseClock_.advance(clockMs_, readStall_);
  if (!mayJudge && askToRead_ && stallTold_ != leaseClock_.stall()) {
    stallTold_ = leaseClock_.stall();
    askToRead_(stallTold_);
  }
  const bool waits = !mayJudge && askToRead_ && commanders_.hasLeases();
  streamer_.standStill(waits);
  if (waits) {
    return;
  }
  for (const CommanderId id : commanders_.expired(clockMs_)) {
    lose(id, Fault::expired);
  }
}

void Desk::adopt(const std::string& name, const std::vector<Streamer::Order>& orders) {
  constexpr int usualPriority = 50;
  std::set<int> axes;
  for (const Streamer::Order& order : orders) {
    const std::vector<int>& actuators = order.batch.commands->actuators;
    axes.insert(actuators.begin(), actuators.end());
  }
  std::vector<Commanders::Owned> losses;
  const Enrolment enrolment{
      name, {axes.begin(), axes.end()}, usualPriority, std::nullopt, LossRule::runOut};
  noteEnrolled(enrolment);
  adopted_ = commanders_.enrol(enrolment, 0, losses);
  for (const Streamer::Order& order : orders) {
    const CommandBatch& commands = *order.batch.commands;
    ledger_.expect(order.number, adopted_, commands.size() * commands.actuators.size(),
                   commands.values.size());
    if (commands.isStop) {
      adoptedStopMs_ = std::max(adoptedStopMs_, order.batch.momentMs.value_or(0));
    }
  }
  tellRegistered(adopted_, axes.size());
  publish();
}

void Desk::letAdoptedResign() {
  if (adopted_ != nobody && ledger_.countsOf(adopted_).left() == 0 &&
      streamer_.latestMs() >= adoptedStopMs_) {
    lose(std::exchange(adopted_, nobody), Fault::resigned);
  }
}

/// One event where it concerns all axes.
void Desk::tell(EventKind kind, const std::vector<int>& axes) {
  Event event{kind, Fault::none, streamer_.latestMs(), Event::byOthers};
  if (axes.size() == stopped_.size()) {
    event.count = axes.size();
    teller_.tell(event, nullptr);
    return;
  }
  event.count = 1;
  for (const int actuator : axes) {
    event.actuator = actuator;
    teller_.tell(event, nullptr);
  }
}

void Desk::tellRegistered(CommanderId commander, std::size_t axes) {
  Event registered{EventKind::registered, Fault::none, streamer_.latestMs(), Event::byOthers};
  registered.commander = commander;
  registered.count = axes;
  teller_.tell(registered, nullptr);
}

void Desk::tellLost(CommanderId commander, Fault why, int actuator, std::size_t axes) {
  Event lost{EventKind::lost, why, streamer_.latestMs(), Event::byOthers, actuator};
  lost.commander = commander;
  lost.count = axes;
  teller_.tell(lost, nullptr);
}

}  // namespace host
