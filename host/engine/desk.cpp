#include "host/engine/desk.h"

#include <utility>

namespace host {

Desk::Desk(Streamer& streamer, Teller& teller, std::size_t axes)
    : streamer_(streamer), teller_(teller) {
  state_.axes.resize(axes);
}

void Desk::demand(std::function<CommandAnswer()> fulfil, Answered answered) {
  const std::lock_guard lock(mutex_);
  demands_.push_back({std::move(fulfil), std::move(answered)});
}

void Desk::request(CommandRequest request, Answered answered) {
  const std::lock_guard lock(mutex_);
  requests_.emplace_back(std::move(request), std::move(answered));
}

void Desk::stop(std::vector<int> axes, CommanderId /*commander*/, Answered answered) {
  hold(std::move(axes), std::move(answered));
}

void Desk::hold(std::vector<int> axes, Answered answered) {
  demand(
      [axes = std::move(axes)] {
        CommandAnswer answer;
        answer.axes = axes;
        return answer;
      },
      std::move(answered));
}

void Desk::release(std::vector<int> axes, Answered answered) {
  hold(std::move(axes), std::move(answered));
}

void Desk::enrol(Enrolment /*enrolment*/, Answered answered) {
  renew(1, std::move(answered));
}

void Desk::renew(CommanderId commander, Answered answered) {
  demand(
      [commander] {
        CommandAnswer answer;
        answer.commander = commander;
        return answer;
      },
      std::move(answered));
}

void Desk::resign(CommanderId commander, Answered answered) {
  renew(commander, std::move(answered));
}

CommandState Desk::state() const {
  const std::lock_guard lock(mutex_);
  return state_;
}

void Desk::setReader(std::function<void(std::uint64_t stall)> askToRead) {
  askToRead_ = std::move(askToRead);
}

void Desk::pass(std::int64_t /*clockMs*/) {
  std::deque<Demand> demands;
  std::deque<std::pair<CommandRequest, Answered>> requests;
  {
    const std::lock_guard lock(mutex_);
    demands.swap(demands_);
    requests.swap(requests_);
  }
  for (const Demand& demand : demands) {
    const CommandAnswer answer = demand.fulfil();
    if (demand.answered) {
      demand.answered(answer);
    }
  }
  for (auto& [request, answered] : requests) {
    CommandAnswer answer;
    for (ScheduledBatch& batch : request.batches) {
      CommandAnswer::TakenBatch& taken = answer.batches.emplace_back();
      for (const int actuator : batch.commands->actuators) {
        taken.axes.push_back({actuator, batch.commands->size(), 0, 0});
      }
      taken.number = streamer_.inbox().put(std::move(batch)).value_or(0);
    }
    if (answered) {
      answered(answer);
    }
  }
}

}  // namespace host
