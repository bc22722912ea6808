#include "host/engine/gate.h"

#include "host/engine/wallclock.h"

namespace host {
namespace {

constexpr std::int64_t longestHoldNs = 20'000;

}  // namespace

GateHold::GateHold(Gate& gate) : gate_(gate) {
  gate_.lock();
  sinceNs_ = wallNs();
}

void GateHold::breathe() {
  if (wallNs() - sinceNs_ > longestHoldNs) {
    gate_.unlock();
    gate_.lock();
    sinceNs_ = wallNs();
  }
}

}  // namespace host
