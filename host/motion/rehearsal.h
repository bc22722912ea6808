#pragma once

#include <cstdint>
#include <vector>

#include "host/motion/event.h"
#include "host/motion/plan.h"
#include "host/motion/pointcounts.h"

namespace host {

/// After so many points of one axis that it had to follow one by one, a rehearsal gives up.
constexpr std::uint64_t mostWalked = 20'000'000;

/// Predicts a run of a plan without a machine. Goes from change to change instead of from cycle
/// to cycle, so its cost grows with points and batches, not with duration. Tells the events of a
/// run on the simulated clock with the same cycle. Counts undisturbed rounds of one batch
/// together; follows those of several on one axis point by point.
///
/// Values agree with a run to 1e-5 or two units in the last place. Returns the counts of
/// each actuator.
std::vector<PointCounts> rehearse(const MachineModel& machine, const Plan& plan, Listener& listener,
                                  std::uint64_t mostWalkedPoints = mostWalked);

/// Multiples of a step, itself one of the cycle, from 0 on.
struct Sampling {
  std::int64_t stepMs = 0;
  std::int64_t endMs = 0;
};

/// What the register of each actuator holds in the cycles at these times, as a rehearsal has it.
std::vector<std::vector<float>> commandedPaths(const MachineModel& machine, const Plan& plan,
                                               const Sampling& sampling,
                                               std::uint64_t mostWalkedPoints = mostWalked);

}  // namespace host
