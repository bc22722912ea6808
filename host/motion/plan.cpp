#include "host/motion/plan.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <memory>

#include "host/base/errorcollector.h"
#include "host/motion/intake.h"
#include "host/motion/limits.h"

namespace host {
namespace {

/// The motions outlive the batches, so nothing is owned.
ScheduledBatch batchOf(const CommandBatch& commands, const Schedule& schedule,
                       Interpolation interpolation) {
  ScheduledBatch batch;
  batch.commands =
      std::shared_ptr<const CommandBatch>(std::shared_ptr<const CommandBatch>(), &commands);
  batch.momentMs = commands.atMs ? std::int64_t{schedule.approachMs} + *commands.atMs : 0;
  batch.originMs = std::int64_t{schedule.approachMs} + commands.fromMs;
  batch.interpolation = commands.interpolation.value_or(interpolation);
  batch.approaches = !commands.atMs;
  return batch;
}

class BatchChecker {
 public:
  BatchChecker(const MachineModel& machine, const Schedule& schedule)
      : machine_(machine), schedule_(schedule) {}

  void check(const ScheduledBatch& batch, ErrorCollector& errors) {
    const CommandBatch& commands = *batch.commands;
    if (!commands.atMs) {
      errors.attempt([&] { checkAlone(commands); });
    }
    for (std::size_t column = 0; column < commands.actuators.size(); ++column) {
      const simulation::Actuator& actuator = machine_.actuator(commands.actuators[column]);
      errors.attempt([&] { checkPoints(batch, column, actuator); });
    }
  }

 private:
  void checkAlone(const CommandBatch& commands) {
    for (const int index : commands.actuators) {
      const auto [other, isFirst] = whole_.emplace(index, &commands);
      if (isFirst) {
        continue;
      }
      throw UserError(commands.path, commands.location,
                      fmt::format("'{}' is moved by {} already; make one of the two a batch of a "
                                  "motion file, with the time at which it begins (at)",
                                  machine_.actuator(index).name, other->second->path));
    }
  }

  void checkPoints(const ScheduledBatch& batch, std::size_t column,
                   const simulation::Actuator& actuator) {
    const CommandBatch& commands = *batch.commands;
    const std::int64_t cycleMs = schedule_.cycleMs;
    const std::int64_t beforeMs = cycleBefore(batch.momentMs.value_or(0), cycleMs);
    const Intake intake{batch, 0, column, actuator, beforeMs, cycleMs};
    Density density;
    const Event fault =
        intake.findFault(intake.points(), Backlog(), initialRecord(actuator), density);
    if (fault.reason == Fault::none) {
      return;
    }
    const SourceLocation location = commands.locations[fault.point];
    if (fault.reason == Fault::tooDense) {
      throw UserError(
          commands.pointsPath, location,
          fmt::format("{} points for '{}' within two cycles of {} ms, at most {} fit; use a "
                      "shorter --cycle",
                      density.inTwoCycles, actuator.name, cycleMs,
                      TimedCommand::MAX_TIMELINE_ITEMS));
    }
    if (fault.reason == Fault::tooSteep) {
      throw UserError(commands.pointsPath, location,
                      fmt::format("'{}' cannot be moved with such a velocity or acceleration; "
                                  "use magnitudes up to {:g}",
                                  actuator.name, mostDerivative));
    }
    throw UserError(commands.pointsPath, location,
                    fmt::format("'{}' cannot be interpolated between {:.6g} and {:.6g}; use "
                                "magnitudes up to {:g}",
                                actuator.name, commandedNumber(actuator, initialRecord(actuator)),
                                commandedNumber(actuator, commands.value(fault.point, column)),
                                mostInterpolated));
  }

  const MachineModel& machine_;
  const Schedule& schedule_;
  /// The trajectory that is a file of its own, by the actuator that it moves.
  std::map<int, const CommandBatch*> whole_;
};

}  // namespace

std::int64_t lastDueMs(const Plan& plan) {
  std::int64_t lastMs = 0;
  for (const ScheduledBatch& batch : plan.batches) {
    lastMs =
        std::max({lastMs, batch.momentMs.value_or(0), batch.originMs + batch.commands->lastMs()});
  }
  return lastMs;
}

Plan planRun(const MachineModel& machine, const std::vector<CommandBatch>& batches,
             const Timing& timing) {
  Plan plan;
  plan.schedule = planSchedule(machine, batches, timing);
  BatchChecker checker(machine, plan.schedule);
  ErrorCollector errors;
  for (const CommandBatch& batch : batches) {
    plan.batches.push_back(batchOf(batch, plan.schedule, timing.interpolation));
    checker.check(plan.batches.back(), errors);
  }
  errors.throwIfAny();
  return plan;
}

}  // namespace host
