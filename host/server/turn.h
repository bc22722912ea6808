#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "host/server/http.h"
#include "host/server/session.h"

namespace host {

/// Where the requests of a session stand, one after the other, among those that the machine is to
/// answer. I/O thread.
class Turn {
 public:
  /// The door must outlive the object.
  explicit Turn(DoorState& door) : door_(door) {}

  /// False when too many wait. What is urgent needs no room.
  bool take(bool isUrgent);
  void leave();
  /// How the next one is answered: `answer` is called on the I/O thread while there is a door.
  Handler::Reply reply(std::function<void(Answer)> answer);
  /// Nobody waits for its answer any longer. Whether it will not be done either.
  [[nodiscard]] bool giveUp();

 private:
  DoorState& door_;
  bool isInQueue_ = false;
  std::shared_ptr<std::atomic<Stage>> stage_;
};

}  // namespace host
