#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/input/commandbatch.h"
#include "host/input/machinemodel.h"

namespace host {

/// What decides when commands are due.
struct Timing {
  std::uint32_t cycleMs = 10;
  /// From the first cycle to the start of the motion; computed when not given.
  std::optional<std::uint32_t> approachMs;
};

/// When the commands of a run are due. Times are milliseconds after the first
/// cycle, which runs at 0; the cycles follow on its grid.
struct Schedule {
  std::uint32_t cycleMs = 1;
  /// From the first cycle to the start of the motion; a multiple of the cycle.
  std::uint32_t approachMs = 1;
  /// Why it takes so long, in words for a user.
  std::string approachReason;
};

/// Plans the run of motions by a machine that stands as described: the approach
/// takes as long as the slowest joint needs to the first point of a trajectory at its
/// velocity limit. Throws `UserError` when a joint cannot move there.
Schedule planSchedule(const MachineModel& machine, const std::vector<CommandBatch>& batches,
                      const Timing& timing);

}  // namespace host
