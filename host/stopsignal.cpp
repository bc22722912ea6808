#include "host/stopsignal.h"

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
  for (int i = 0; i < 4; ++i) {
    sigaction(stopping[i], &action, &previous_[i]);
  }
  action.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &action, &previousPipe_);
}

StopSignal::~StopSignal() {
  for (int i = 0; i < 4; ++i) {
    sigaction(stopping[i], &previous_[i], nullptr);
  }
  sigaction(SIGPIPE, &previousPipe_, nullptr);
}

int StopSignal::received() noexcept {
  return gReceived.load(std::memory_order_relaxed);
}

}  // namespace host
