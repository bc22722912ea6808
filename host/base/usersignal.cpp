#include "host/base/usersignal.h"

#include <atomic>

namespace host {
namespace {

std::atomic<bool> gWished{false};
static_assert(std::atomic<bool>::is_always_lock_free);

}  // namespace

UserSignal::UserSignal() {
  gWished = false;
  struct sigaction action {};
  action.sa_handler = [](int) { gWished = true; };
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(SIGUSR1, &action, &previous_);
}

UserSignal::~UserSignal() {
  sigaction(SIGUSR1, &previous_, nullptr);
}

bool UserSignal::take() noexcept {
  return gWished.exchange(false);
}

}  // namespace host
