#include "host/server/turn.h"

#include <boost/asio/post.hpp>
#include <utility>

#include "host/server/bounds.h"

namespace host {

bool Turn::take(bool isUrgent) {
  if (!isUrgent && door_.waitingRequests == bounds::requests) {
    return false;
  }
  isInQueue_ = !isUrgent;
  door_.waitingRequests += isInQueue_ ? 1 : 0;
  return true;
}

void Turn::leave() {
  door_.waitingRequests -= std::exchange(isInQueue_, false) ? 1 : 0;
}

Handler::Reply Turn::reply(std::function<void(Answer)> answer) {
  stage_ = std::make_shared<std::atomic<Stage>>(Stage::begun);
  const auto send = [door = door_.weak_from_this(),
                     answer = std::move(answer)](std::function<Answer()> make) {
    if (const auto state = door.lock()) {
      boost::asio::post(state->io, [answer, make = std::move(make)] { answer(make()); });
    }
  };
  return {send, stage_};
}

bool Turn::giveUp() {
  Stage stage = Stage::waits;
  return stage_->compare_exchange_strong(stage, Stage::givenUp);
}

}  // namespace host
