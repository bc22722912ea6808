#include "host/server/deadline.h"

#include <utility>

namespace host {

void Deadline::set(std::chrono::milliseconds time, std::function<void()> late) {
  cancel();
  timer_.expires_after(time);
  timer_.async_wait(
      [this, number = number_, late = std::move(late)](const boost::system::error_code&) {
        if (number == number_) {
          late();
        }
      });
}

void Deadline::cancel() {
  ++number_;
  timer_.cancel();
}

}  // namespace host
