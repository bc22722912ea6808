#include "host/motion/plan.h"

#include <fmt/format.h>

#include <map>
#include <memory>

#include "host/motion/intake.h"
#include "host/motion/limits.h"

namespace host {
namespace {

/// The motions outlive the batches, so nothing is owned.
Batch batchOf(const Motion& motion, const Schedule& schedule) {
  Batch batch;
  batch.motion = std::shared_ptr<const Motion>(std::shared_ptr<const Motion>(), &motion);
  batch.momentMs = motion.atMs ? std::int64_t{schedule.approachMs} + *motion.atMs : 0;
  batch.originMs = std::int64_t{schedule.approachMs} + motion.fromMs;
  return batch;
}

class BatchChecker {
 public:
  BatchChecker(const MachineFile& machine, const Schedule& schedule)
      : machine_(machine), schedule_(schedule) {}

  void check(const Batch& batch) {
    const Motion& motion = *batch.motion;
    for (std::size_t column = 0; column < motion.actuators.size(); ++column) {
      const int index = motion.actuators[column];
      const simulation::Actuator& actuator = machine_.actuator(index);
      if (!motion.atMs) {
        checkAlone(motion, index);
      }
      checkPoints(batch, column, actuator);
    }
  }

 private:
  void checkAlone(const Motion& motion, int index) {
    const auto [other, isFirst] = whole_.emplace(index, &motion);
    if (!isFirst) {
      throw InputError(motion.path, motion.place,
                       fmt::format("'{}' is moved by {} already; put one of the two into a list, "
                                   "with the moment of its hand-over",
                                   machine_.actuator(index).name, other->second->path));
    }
  }

  void checkPoints(const Batch& batch, std::size_t column, const simulation::Actuator& actuator) {
    const Motion& motion = *batch.motion;
    const std::int64_t cycleMs = schedule_.cycleMs;
    const std::int64_t beforeMs = cycleBefore(batch.momentMs.value_or(0), cycleMs);
    const Intake intake{batch, 0, column, actuator, beforeMs, cycleMs};
    Density density;
    const Event fault =
        intake.findFault(intake.points(), Backlog(), initialRecord(actuator), density);
    if (fault.reason == Fault::none) {
      return;
    }
    const Position place = motion.places[fault.point];
    if (fault.reason == Fault::tooDense) {
      throw InputError(
          motion.path, place,
          fmt::format("{} points for '{}' within two cycles of {} ms, at most {} fit; use a "
                      "shorter --cycle",
                      density.inTwoCycles, actuator.name, cycleMs,
                      TimedCommand::MAX_TIMELINE_ITEMS));
    }
    throw InputError(motion.path, place,
                     fmt::format("'{}' cannot be interpolated between {:.6g} and {:.6g}; use "
                                 "magnitudes up to {:g}",
                                 actuator.name, commandedNumber(actuator, initialRecord(actuator)),
                                 commandedNumber(actuator, motion.value(fault.point, column)),
                                 mostInterpolated));
  }

  const MachineFile& machine_;
  const Schedule& schedule_;
  /// The trajectory that is a file of its own, by the actuator that it moves.
  std::map<int, const Motion*> whole_;
};

}  // namespace

Plan planRun(const MachineFile& machine, const std::vector<Motion>& motions, const Timing& timing) {
  Plan plan;
  plan.schedule = planSchedule(machine, motions, timing);
  BatchChecker checker(machine, plan.schedule);
  for (const Motion& motion : motions) {
    plan.batches.push_back(batchOf(motion, plan.schedule));
    checker.check(plan.batches.back());
  }
  return plan;
}

}  // namespace host
