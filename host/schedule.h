#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/input/machinefile.h"
#include "host/input/motion.h"
#include "host/runoptions.h"

namespace host {

/// When the commands of a run are due. Times are milliseconds after the first
/// cycle, which runs at 0; the cycles follow on its grid.
struct Schedule {
  std::uint32_t cycleMs = 1;
  /// From the first cycle to the start of the motion; a multiple of the cycle.
  std::uint32_t leadMs = 1;
  /// Why the lead is what it is, in words for a user.
  std::string leadReason;

  /// The last cycle before this moment.
  [[nodiscard]] std::int64_t cycleBefore(std::int64_t timeMs) const {
    return (timeMs + cycleMs - 1) / cycleMs * cycleMs - cycleMs;
  }
};

/// Plans the run of motions by a machine that stands as described: the lead is
/// what the joint with the longest way to the first point of a trajectory needs
/// at its velocity limit. Throws `InputError` when a joint cannot move there.
Schedule planSchedule(const MachineFile& machine, const std::vector<Motion>& motions,
                      const Timing& timing);

}  // namespace host
