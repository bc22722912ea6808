#include "host/motion/rehearsal.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "host/motion/limits.h"
#include "host/motion/rehearsedaxis.h"

namespace host {
namespace {

class Rehearsal {
 public:
  Rehearsal(const MachineModel& machine, const Plan& plan, Listener& listener,
            std::uint64_t mostWalkedPoints)
      : cycleMs_(plan.schedule.cycleMs), listener_(listener) {
    while (axes_.size() < machine.description.actuators.size()) {
      axes_.emplace_back(static_cast<int>(axes_.size()), machine, cycleMs_, mostWalkedPoints,
                         listener);
    }
  }

  void handOver(const ScheduledBatch& batch, std::uint32_t number) {
    const std::int64_t latestMs = cycleBefore(batch.momentMs.value_or(0), cycleMs_);
    const std::vector<int>& actuators = batch.commands->actuators;
    std::vector<Rounds> points;
    Event fault;
    for (std::size_t column = 0; column < actuators.size(); ++column) {
      RehearsedAxis& axis = axisOf(actuators[column]);
      axis.goOnTo(latestMs);
      const Intake intake = axis.intake(batch, number, column);
      points.push_back(intake.points());
      if (fault.reason == Fault::none) {
        fault = axis.findFault(intake, points.back());
      }
    }
    for (std::size_t column = 0; column < actuators.size(); ++column) {
      RehearsedAxis& axis = axisOf(actuators[column]);
      if (fault.reason == Fault::none) {
        axis.take(axis.intake(batch, number, column), points[column]);
      } else {
        axis.refuse(points[column].size());
        fault.count += points[column].size();
      }
    }
    if (fault.reason != Fault::none) {
      listener_.tell(fault, nullptr);
    }
  }

  /// Adds what each register holds in the cycle at this time.
  void sample(std::int64_t timeMs, std::vector<std::vector<float>>& paths) {
    for (std::size_t i = 0; i < axes_.size(); ++i) {
      axes_[i].goOnTo(timeMs);
      paths[i].push_back(static_cast<float>(axes_[i].value()));
    }
  }

  std::vector<PointCounts> finish() {
    std::vector<PointCounts> counts;
    for (RehearsedAxis& axis : axes_) {
      axis.finish();
      counts.push_back(axis.counts());
    }
    return counts;
  }

 private:
  [[nodiscard]] RehearsedAxis& axisOf(int actuator) {
    return axes_[static_cast<std::size_t>(actuator)];
  }

  const std::int64_t cycleMs_;
  Listener& listener_;
  std::vector<RehearsedAxis> axes_;
};

/// The numbers of the batches, as they are handed over.
std::vector<std::uint32_t> orderOf(const Plan& plan) {
  std::vector<std::uint32_t> order(plan.batches.size());
  std::iota(order.begin(), order.end(), 0U);
  std::stable_sort(order.begin(), order.end(), [&](std::uint32_t one, std::uint32_t other) {
    return plan.batches[one].momentMs < plan.batches[other].momentMs;
  });
  return order;
}

struct Deaf : Listener {
  void tell(const Event& /*event*/, const Point* /*points*/) override {}
};

}  // namespace

std::vector<PointCounts> rehearse(const MachineModel& machine, const Plan& plan, Listener& listener,
                                  std::uint64_t mostWalkedPoints) {
  Rehearsal rehearsal(machine, plan, listener, mostWalkedPoints);
  for (const std::uint32_t number : orderOf(plan)) {
    rehearsal.handOver(plan.batches[number], number);
  }
  return rehearsal.finish();
}

std::vector<std::vector<float>> commandedPaths(const MachineModel& machine, const Plan& plan,
                                               const Sampling& sampling,
                                               std::uint64_t mostWalkedPoints) {
  Deaf deaf;
  Rehearsal rehearsal(machine, plan, deaf, mostWalkedPoints);
  std::vector<std::vector<float>> paths(machine.description.actuators.size());
  std::int64_t timeMs = 0;
  const auto sampleUntil = [&](std::int64_t untilMs) {
    for (; timeMs <= std::min(untilMs, sampling.endMs); timeMs += sampling.stepMs) {
      rehearsal.sample(timeMs, paths);
    }
  };
  for (const std::uint32_t number : orderOf(plan)) {
    const ScheduledBatch& batch = plan.batches[number];
    sampleUntil(cycleBefore(batch.momentMs.value_or(0), plan.schedule.cycleMs));
    rehearsal.handOver(batch, number);
  }
  sampleUntil(sampling.endMs);
  return paths;
}

}  // namespace host
