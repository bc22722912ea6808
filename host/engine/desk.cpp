#include "host/engine/desk.h"

#include <algorithm>
#include <utility>

#include "host/motion/intake.h"
#include "host/motion/limits.h"

namespace host {
namespace {

/// What waits to be taken is bounded as well.
constexpr std::size_t mostAsked = 10'000;

std::uint64_t pointsOf(const CommandRequest& request) {
  std::uint64_t points = 0;
  for (const ScheduledBatch& batch : request.batches) {
    points += batch.commands->values.size();
  }
  return points;
}

std::uint64_t roomFor(std::uint64_t waiting, std::uint64_t most) {
  return waiting < most ? most - waiting : 0;
}

void give(const Answered& answered, const CommandAnswer& answer) {
  if (answered) {
    answered(answer);
  }
}

/// What an actuator may be asked for at most.
double limitFor(const Event& fault, const MachineModel& machine) {
  const simulation::Actuator& actuator = machine.actuator(fault.actuator);
  switch (fault.reason) {
    case Fault::tooDense:
      return TimedCommand::MAX_TIMELINE_ITEMS;
    case Fault::notFinite:
      return double{mostInterpolated};
    case Fault::tooSteep:
      return double{mostDerivative};
    case Fault::tooFast:
      return machine.velocityLimit(fault.actuator);
    case Fault::beyond:
      return fault.amount > actuator.maximum ? actuator.maximum : actuator.minimum;
    default:
      return 0.0;
  }
}

}  // namespace

Desk::Desk(Streamer& streamer, Teller& teller, Journal& journal, const MachineModel& machine,
           std::int64_t cycleMs)
    : streamer_(streamer),
      teller_(teller),
      journal_(journal),
      machine_(machine),
      commanders_(machine.description.actuators.size()),
      leaseClock_(cycleMs),
      stopped_(machine.description.actuators.size(), 0) {
  state_.axes.resize(stopped_.size());
  teller_.addListener(ledger_);
}

/// Where a journal says what is done.
bool Desk::refusesAll(const Answered& answered) const {
  if (journal_.isFollowed()) {
    CommandAnswer answer;
    answer.denial.reason = Fault::replayed;
    give(answered, answer);
  }
  return journal_.isFollowed();
}

void Desk::demand(std::function<CommandAnswer()> fulfil, Answered answered) {
  if (refusesAll(answered)) {
    return;
  }
  const std::lock_guard lock(mutex_);
  demands_.push_back({std::move(fulfil), std::move(answered), ++sequence_});
}

void Desk::request(CommandRequest request, Answered answered) {
  if (refusesAll(answered)) {
    return;
  }
  const std::size_t points = pointsOf(request);
  CommandAnswer full;
  {
    const std::lock_guard lock(mutex_);
    if (askedPoints_ + points <= mostWaitingPoints && asked_.size() < mostAsked) {
      asked_.push_back({std::move(request), std::move(answered), ++sequence_, points});
      askedPoints_ += points;
      return;
    }
    full.denial.reason = Fault::full;
    full.denial.room = roomFor(askedPoints_, mostWaitingPoints);
  }
  give(answered, full);
}

void Desk::stop(std::vector<int> axes, CommanderId commander, Answered answered) {
  demand([this, axes = std::move(axes), commander] { return doStop(axes, commander); },
         std::move(answered));
}

void Desk::hold(std::vector<int> axes, Answered answered) {
  demand([this, axes = std::move(axes)] { return doHold(axes); }, std::move(answered));
}

void Desk::release(std::vector<int> axes, Answered answered) {
  demand([this, axes = std::move(axes)] { return doRelease(axes); }, std::move(answered));
}

void Desk::enrol(Enrolment enrolment, Answered answered) {
  demand([this, enrolment = std::move(enrolment)] { return doEnrol(enrolment); },
         std::move(answered));
}

void Desk::renew(CommanderId commander, std::optional<std::int64_t> leaseMs, Answered answered) {
  demand([this, commander, leaseMs] { return doRenew(commander, leaseMs); }, std::move(answered));
}

void Desk::resign(CommanderId commander, Answered answered) {
  demand([this, commander] { return lose(commander, Fault::resigned); }, std::move(answered));
}

void Desk::disconnect(CommanderId commander) {
  demand([this, commander] { return lose(commander, Fault::disconnected); }, {});
}

void Desk::note(Event event) {
  demand(
      [this, event = std::move(event)]() mutable {
        event.timeMs = streamer_.latestMs();
        teller_.tell(event, nullptr);
        return CommandAnswer();
      },
      {});
}

CommandState Desk::state() const {
  const std::lock_guard lock(mutex_);
  return state_;
}

void Desk::setReader(std::function<void(std::uint64_t stall)> askToRead) {
  askToRead_ = std::move(askToRead);
}

void Desk::pass(std::int64_t clockMs) {
  clockMs_ = clockMs;
  letAdoptedResign();
  fulfilDemands();
  while (const std::optional<Asked> asked = nextAsked()) {
    give(asked->answered, answerTo(*asked));
    fulfilDemands();
  }
  judgeLeases();
}

void Desk::fulfilDemands() {
  std::deque<Demand> demands;
  {
    const std::lock_guard lock(mutex_);
    demands.swap(demands_);
  }
  for (const Demand& demand : demands) {
    fulfilling_ = demand.sequence;
    give(demand.answered, demand.fulfil());
  }
}

std::optional<Desk::Asked> Desk::nextAsked() {
  const std::lock_guard lock(mutex_);
  if (asked_.empty()) {
    return std::nullopt;
  }
  std::optional<Asked> next = std::move(asked_.front());
  asked_.pop_front();
  askedPoints_ -= next->points;
  return next;
}

CommandAnswer Desk::answerTo(const Asked& asked) {
  const std::int64_t nextMs = streamer_.nextMs();
  const CommandRequest& request = asked.request;
  CommandAnswer answer;
  answer.timeMs = streamer_.latestMs();
  std::vector<Streamer::Order> orders;
  const std::uint32_t first = streamer_.inbox().takeNumbers(request.batches.size());
  for (const ScheduledBatch& batch : request.batches) {
    orders.push_back({batch, first + static_cast<std::uint32_t>(orders.size())});
    orders.back().batch.originMs += batch.isRelative ? nextMs : 0;
  }
  answer.denial = findDenial(request);
  if (answer.isDone()) {
    answer.denial = denialOf(orders, streamer_.findObjection(orders, request.isStrict));
  }
  if (!answer.isDone()) {
    refuse(orders, asked, answer.denial);
    return answer;
  }
  for (const Streamer::Order& order : orders) {
    CommandAnswer::TakenBatch& taken = answer.batches.emplace_back();
    taken.number = order.number;
    std::size_t column = 0;
    for (const PointCounts& counts : streamer_.countsOf(order)) {
      taken.axes.push_back(
          {order.batch.commands->actuators[column++], counts.points, counts.late, counts.limited});
    }
  }
  take(orders, asked);
  return answer;
}

/// By rules that need no look at points.
Denial Desk::findDenial(const CommandRequest& request) const {
  Denial denial;
  if (streamer_.isEnding()) {
    denial.reason = Fault::ending;
    return denial;
  }
  if (request.commander != nobody && commanders_.find(request.commander) == nullptr) {
    denial.reason = Fault::unknown;
    return denial;
  }
  for (std::size_t i = 0; i < request.batches.size(); ++i) {
    for (const int actuator : request.batches[i].commands->actuators) {
      const CommanderId owner = commanders_.ownerOf(actuator);
      const bool mayTryOut = request.isDryRun && owner == nobody;
      if (owner != request.commander && !mayTryOut) {
        denial = ownedBy(actuator, owner);
        denial.batch = i;
        return denial;
      }
    }
  }
  const std::uint64_t points = pointsOf(request);
  denial.room =
      std::min(roomFor(ledger_.waiting(), mostWaitingPoints),
               roomFor(ledger_.waitingOf(request.commander), mostWaitingPointsOfCommander));
  denial.reason = points > 0 && points > denial.room ? Fault::full : Fault::none;
  return denial;
}

Denial Desk::ownedBy(int actuator, CommanderId owner) const {
  Denial denial;
  denial.reason = Fault::owned;
  denial.actuator = actuator;
  denial.owner = owner;
  const Commanders::Commander* const known = commanders_.find(owner);
  denial.ownerName = known == nullptr ? "" : known->enrolment.name;
  return denial;
}

Denial Desk::denialOf(const std::vector<Streamer::Order>& orders,
                      const Streamer::Objection& objection) const {
  Denial denial;
  const Event& fault = objection.fault;
  denial.reason = fault.reason;
  if (fault.reason != Fault::none) {
    denial.batch = objection.order;
    denial.actuator = fault.actuator;
    denial.point = fault.point;
    denial.figure = fault.amount;
    const simulation::Actuator& actuator = machine_.actuator(fault.actuator);
    denial.limit = limitFor(fault, machine_);
    if (fault.reason == Fault::notFinite) {
      const CommandBatch& commands = *orders[objection.order].batch.commands;
      const auto column =
          std::find(commands.actuators.begin(), commands.actuators.end(), fault.actuator);
      denial.figure = commandedNumber(
          actuator, commands.value(fault.point,
                                   static_cast<std::size_t>(column - commands.actuators.begin())));
    }
  }
  return denial;
}

void Desk::take(const std::vector<Streamer::Order>& orders, const Asked& asked) {
  if (asked.request.isDryRun) {
    return;
  }
  for (const Streamer::Order& order : orders) {
    const CommandBatch& commands = *order.batch.commands;
    ledger_.expect(order.number, asked.request.commander,
                   commands.size() * commands.actuators.size(), commands.values.size());
  }
  commanders_.renew(asked.request.commander, clockMs_);
  std::vector<Streamer::Order> allowed = orders;
  for (Streamer::Order& order : allowed) {
    dismissStopped(order, asked.sequence);
  }
  streamer_.take(allowed);
}

void Desk::refuse(const std::vector<Streamer::Order>& orders, const Asked& asked,
                  const Denial& denial) {
  if (asked.request.isDryRun) {
    return;
  }
  const CommanderId known =
      commanders_.find(asked.request.commander) == nullptr ? nobody : asked.request.commander;
  for (std::size_t i = 0; i < orders.size(); ++i) {
    const CommandBatch& commands = *orders[i].batch.commands;
    ledger_.expect(orders[i].number, known, commands.size() * commands.actuators.size(), 0);
    Event fault{EventKind::refused, denial.reason};
    if (i == denial.batch) {
      fault.actuator = denial.actuator;
      fault.point = denial.point;
      fault.amount = denial.figure;
    }
    streamer_.refuse(orders[i], fault);
  }
}

/// What was asked for before a stop does not move what the stop concerns.
void Desk::dismissStopped(Streamer::Order& order, std::uint64_t sequence) {
  for (const int actuator : order.batch.commands->actuators) {
    if (!order.batch.momentMs && stopped_[static_cast<std::size_t>(actuator)] > sequence) {
      streamer_.dismiss(order, actuator, Event::byStop);
    }
  }
}

void Desk::publish() {
  streamer_.copyAxisStates(next_.axes);
  for (std::size_t i = 0; i < next_.axes.size(); ++i) {
    next_.axes[i].owner = commanders_.ownerOf(static_cast<int>(i));
  }
  next_.commanders.clear();
  for (const auto& [id, commander] : commanders_.all()) {
    next_.commanders.push_back({id, commander.enrolment, ledger_.countsOf(id)});
  }
  const std::lock_guard lock(mutex_);
  std::swap(state_, next_);
}

}  // namespace host
