#pragma once

#include <cstdint>
#include <vector>

#include "host/input/machinemodel.h"
#include "host/motion/schedule.h"
#include "host/motion/scheduledbatch.h"

namespace host {

/// What a run is to do: batches, in the order of their files, with the number of each as
/// its position.
struct Plan {
  Schedule schedule;
  std::vector<ScheduledBatch> batches;
};

/// When the last of its commands is due, in milliseconds of machine time.
std::int64_t lastDueMs(const Plan& plan);

/// Lays motions out in machine time, for a machine that stands as described. A trajectory
/// that is a file of its own is handed over before the first cycle, and approaches its
/// first point from there.
///
/// The motions must outlive the plan. Throws `UserError`, as `planSchedule` does, and for
/// what can never be taken: two such trajectories on one actuator, values that no register
/// can hold on its way, and a batch with more points than a timeline holds within two
/// cycles.
Plan planRun(const MachineModel& machine, const std::vector<CommandBatch>& batches,
             const Timing& timing);

}  // namespace host
