#pragma once

#include <vector>

#include "host/input/commandbatch.h"
#include "host/input/machinemodel.h"
#include "host/motion/schedule.h"

namespace host {

/// The batch stretched in time by a factor of 1 or more, with velocities and accelerations
/// accordingly. Times are rounded up to whole milliseconds.
CommandBatch stretched(const CommandBatch& batch, double factor);

/// Stretches in time, of the batches that ask for more than the maximum velocities and
/// accelerations, each just so far that a rehearsal of all tells no more of that; none shrinks.
/// What no stretch helps, such as a jump, stays as it is. `CommandBatch::stretch` and a note
/// tell by how much. Throws `UserError`, as `planRun`.
void stretchToLimits(const MachineModel& machine, std::vector<CommandBatch>& batches,
                     const Timing& timing);

}  // namespace host
