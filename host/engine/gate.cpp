#include "host/engine/gate.h"

#include "host/base/clocks.h"

namespace host {
namespace {

constexpr std::int64_t longestHoldNs = 20'000;

}  // namespace

GateHold::GateHold(Gate& gate) : gate_(gate) {
  gate_.lock();
  sinceNs_ = bootNs();
}

void GateHold::breathe() {
  if (bootNs() - sinceNs_ > longestHoldNs) {
    gate_.unlock();
    gate_.lock();
    sinceNs_ = bootNs();
  }
}

}  // namespace host
