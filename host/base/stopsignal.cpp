#include "host/base/stopsignal.h"

#include <atomic>

namespace host {
namespace {

std::atomic<int> gReceived{0};
static_assert(std::atomic<int>::is_always_lock_free);

void note(int signal) {
  int none = 0;
  gReceived.compare_exchange_strong(none, signal);
}

}  // namespace

StopSignal::StopSignal() {
  gReceived = 0;
  struct sigaction action {};
  action.sa_handler = note;
  sigemptyset(&action.sa_mask);
  for (std::size_t i = 0; i < stopping.size(); ++i) {
    sigaction(stopping[i], &action, &previous_[i]);
    if (stopping[i] == SIGHUP && previous_[i].sa_handler == SIG_IGN) {
      sigaction(SIGHUP, &previous_[i], nullptr);  // started to outlive its terminal
    }
  }
  action.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &action, &previousPipe_);
}

StopSignal::~StopSignal() {
  for (std::size_t i = 0; i < stopping.size(); ++i) {
    sigaction(stopping[i], &previous_[i], nullptr);
  }
  sigaction(SIGPIPE, &previousPipe_, nullptr);
}

int StopSignal::received() noexcept {
  return gReceived.load(std::memory_order_relaxed);
}

}  // namespace host
