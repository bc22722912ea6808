#pragma once

#include <cstdint>
#include <limits>
#include <vector>

#include "host/engine/cyclelog.h"
#include "host/engine/pacer.h"

namespace host {

/// What a cycle found in a command register that the one before had left otherwise.
struct ForeignWrite {
  /// Of the cycle before.
  std::int64_t previousMs = 0;
  int actuator = -1;
  std::int32_t bits = 0;
};

/// What the cycle leaves for the command thread. Both use it under the gate alone.
struct CycleState {
  /// Machine time of the latest cycle.
  std::int64_t latestMs = 0;
  /// How far the clock's grid was ahead of it then.
  std::int64_t lagMs = 0;
  CycleLog log;
  PaceCount pace;
  /// The bound that last kept machine time from going on.
  std::int64_t heldAtMs = std::numeric_limits<std::int64_t>::min();
  /// As many as there is memory for, which is none where nobody wants them; and how many more.
  std::vector<ForeignWrite> writes;
  std::uint64_t lostWrites = 0;
};

}  // namespace host
