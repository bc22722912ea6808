#pragma once

#include <vector>

#include "host/motion/event.h"
#include "host/motion/plan.h"
#include "host/motion/pointcounts.h"

namespace host {

/// Takes the batches of a plan in by the rules of the engine, without a machine and without
/// cycles: goes from change to change, so that it takes no longer for a longer motion. It
/// knows the grid of the cycles, and tells what a run on the simulated clock tells.
///
/// Values agree with a run to 1e-5 or two units in the last place. Returns the counts of
/// each actuator.
std::vector<PointCounts> rehearse(const MachineModel& machine, const Plan& plan,
                                  Listener& listener);

}  // namespace host
