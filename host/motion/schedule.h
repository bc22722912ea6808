#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/input/commandbatch.h"
#include "host/input/machinemodel.h"

namespace host {

/// What decides when commands are due, and how the way between them runs.
struct Timing {
  std::uint32_t cycleMs = 10;
  /// From the first cycle to the start of the motion; computed when not given.
  std::optional<std::uint32_t> approachMs;
  /// Of batches that have none of their own.
  Interpolation interpolation = Interpolation::message;
  /// Stretches what asks for more than velocities and accelerations may be.
  bool scales = false;
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

/// The shortest time, in seconds, in which an approach covers a distance: it is at rest at
/// both ends, moves at this velocity at most, and takes a quarter of a second at least to
/// get up to it, or as much longer as this acceleration demands.
double approachSeconds(double distance, double velocity, double acceleration);

/// Plans the run of motions by a machine that stands as described. The approach takes as long
/// as the slowest joint needs to the first point of a trajectory, less the time that the
/// trajectory itself leaves before it. Throws `UserError` when a joint cannot move there.
Schedule planSchedule(const MachineModel& machine, const std::vector<CommandBatch>& batches,
                      const Timing& timing);

}  // namespace host
