#include "host/base/stopsignal.h"

#include <atomic>
#include <cstdint>

#include "host/base/clocks.h"

namespace host {
namespace {

std::atomic<int> gReceived{0};
std::atomic<std::int64_t> gFirstNs{0};
std::atomic<bool> gRepeated{false};
std::atomic<bool> gNextEnds{false};
static_assert(std::atomic<int>::is_always_lock_free);
static_assert(std::atomic<std::int64_t>::is_always_lock_free);

void note(int signal);

/// An ignored SIGHUP stays ignored.
void restoreDefault(int signal) {
  struct sigaction action {};
  sigaction(signal, nullptr, &action);
  if (action.sa_handler == note) {
    action.sa_handler = SIG_DFL;
    sigaction(signal, &action, nullptr);
  }
}

void note(int signal) {
  constexpr std::int64_t oneWishNs = 20 * nsPerMs;
  const std::int64_t now = bootNs();
  std::int64_t first = 0;
  if (gFirstNs.compare_exchange_strong(first, now)) {
    gReceived = signal;
    return;
  }
  if (now - first <= oneWishNs) {
    return;
  }
  gRepeated = true;
  for (const int other : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    restoreDefault(other);
  }
  if (gNextEnds) {
    std::raise(signal);
  }
}

}  // namespace

StopSignal::StopSignal() {
  gReceived = 0;
  gFirstNs = 0;
  gRepeated = false;
  gNextEnds = false;
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

bool StopSignal::isRepeated() noexcept {
  return gRepeated.load(std::memory_order_relaxed);
}

void StopSignal::letRepeatedEnd() noexcept {
  gNextEnds = true;
}

int StopSignal::received() noexcept {
  return gReceived.load(std::memory_order_relaxed);
}

}  // namespace host
