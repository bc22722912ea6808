#include "host/engine/pacer.h"

#include <algorithm>

namespace host {

void Pacer::wake(std::int64_t clockCycle) noexcept {
  constexpr std::int64_t mostPassedOver = 2;
  const std::int64_t passed = std::max<std::int64_t>(clockCycle - clockCycle_, 1);
  const std::int64_t passedOver = passed - 1;
  clockCycle_ = std::max(clockCycle, clockCycle_);
  const bool stalled = passedOver > mostPassedOver;
  if (stalled) {
    ++count_.stalls;
    count_.stalledMs += passedOver * cycleMs_;
  } else {
    count_.overruns += static_cast<std::uint64_t>(passedOver);
  }
  if (late_ == Late::catchUp) {
    wantedCycles_ += passed;
  } else {
    wantedCycles_ = stalled ? 1 : passed;
  }
}

std::int64_t Pacer::stepMs(std::int64_t boundMs) const noexcept {
  const std::int64_t room = std::max<std::int64_t>(boundMs - timeMs_, 0) / cycleMs_;
  return std::min(wantedCycles_, room) * cycleMs_;
}

void Pacer::go(std::int64_t stepMs) noexcept {
  const std::int64_t goneCycles = stepMs / cycleMs_;
  timeMs_ += stepMs;
  if (late_ == Late::catchUp) {
    count_.stands += goneCycles == 0 ? 1 : 0;
    wantedCycles_ -= goneCycles;
  } else {
    count_.stands += static_cast<std::uint64_t>(wantedCycles_ - goneCycles);
    wantedCycles_ = 0;
  }
}

}  // namespace host
