#include "host/base/stopsignal.h"

#include <atomic>
#include <cstdint>
#include <ctime>

namespace host {
namespace {

std::atomic<int> gReceived{0};
std::atomic<std::int64_t> gReceivedNs{0};
std::atomic<bool> gRepeated{false};
static_assert(std::atomic<int>::is_always_lock_free);
static_assert(std::atomic<std::int64_t>::is_always_lock_free);

std::int64_t nowNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

void note(int signal) {
  constexpr std::int64_t oneWishNs = 20'000'000;
  int none = 0;
  if (gReceived.compare_exchange_strong(none, signal)) {
    gReceivedNs = nowNs();
  } else if (nowNs() - gReceivedNs > oneWishNs) {
    gRepeated = true;
  }
}

}  // namespace

StopSignal::StopSignal() {
  gReceived = 0;
  gRepeated = false;
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

int StopSignal::received() noexcept {
  return gReceived.load(std::memory_order_relaxed);
}

}  // namespace host
