#pragma once

#include <cstdint>
#include <limits>

#include "host/engine/cyclelog.h"
#include "host/engine/pacer.h"

namespace host {

/// What the cycle leaves for the command thread. Both use it under the gate alone.
struct CycleState {
  /// Machine time of the latest cycle.
  std::int64_t latestMs = 0;
  CycleLog log;
  PaceCount pace;
  /// The bound that last kept machine time from going on.
  std::int64_t heldAtMs = std::numeric_limits<std::int64_t>::min();
};

}  // namespace host
