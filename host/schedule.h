#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "host/commandline.h"
#include "host/input/jointtrajectory.h"
#include "host/input/urdf.h"

namespace host {

/// How many items the host queues ahead, at most, on a timeline.
constexpr std::size_t windowItems = 32;

/// When the items of a run are due. Times are milliseconds after the first
/// cycle, which runs at 0; stamps add the start tick, modulo 2^32.
struct Schedule {
  std::uint32_t startTick = 0;
  std::uint32_t cycleMs = 1;
  /// From the first cycle to the start of the motion; a multiple of the cycle.
  std::uint32_t leadMs = 1;
  /// Why the lead is what it is, in words for a user.
  std::string leadReason;

  [[nodiscard]] std::uint32_t stamp(std::int64_t timeMs) const {
    return startTick + static_cast<std::uint32_t>(timeMs);
  }
};

/// Plans the run of a motion by a robot that stands as described: the lead is
/// what the joint with the longest way to the first point needs at its velocity
/// limit. Throws `InputError` when a joint cannot move there, and when more
/// points follow each other closely than the host queues ahead.
Schedule planSchedule(const Robot& robot, const Motion& motion, const RunOptions& options);

}  // namespace host
