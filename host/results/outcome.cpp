#include "host/results/outcome.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/base/counted.h"
#include "host/motion/limits.h"

namespace host {
namespace {

Finding general(std::string text) {
  Finding finding;
  finding.text = std::move(text);
  return finding;
}

/// Of a client's point it is what was taken.
hal::AttrGeneric askedOf(const AxisResult& axis, const Point& point, const Plan& plan) {
  if (point.batch >= plan.batches.size()) {
    return point.value;
  }
  const CommandBatch& commands = *plan.batches[point.batch].commands;
  const auto column = std::find(commands.actuators.begin(), commands.actuators.end(), axis.index);
  return commands.value(commands.rowOf(point.index),
                        static_cast<std::size_t>(column - commands.actuators.begin()));
}

/// Why the axis does not do what it was told; empty when it does.
std::vector<std::string> shortfalls(const AxisResult& axis, double tolerance) {
  std::vector<std::string> reasons;
  const std::string& name = axis.actuator.name;
  if (const std::uint64_t left = axis.counts.left(); left > 0) {
    reasons.push_back(
        fmt::format("{}: {} of {} left", name, left, counted(axis.counts.points, "point")));
  }
  if (axis.target) {
    const double target = commandedNumber(axis.actuator, axis.target->value);
    if (!(axis.commanded() == target)) {
      reasons.push_back(
          fmt::format("{}: the last command is {} instead of {}", name, axis.commanded(), target));
    }
  }
  if (!(axis.trackingError() <= tolerance)) {
    reasons.push_back(fmt::format("{}: measured {} for the command {}, more than {} away", name,
                                  *axis.measured, axis.commanded(), tolerance));
  }
  return reasons;
}

}  // namespace

const char* nameOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::reached:
      return "reached";
    case Verdict::limited:
      return "limited";
    case Verdict::stopped:
      return "stopped";
    case Verdict::held:
      return "held";
    case Verdict::missed:
      break;
  }
  return "missed";
}

std::vector<AxisOutcome> judgedAxes(const RunResult& result, const Plan& plan, Outcome& outcome) {
  std::vector<AxisOutcome> axes;
  for (const AxisResult& axis : result.axes) {
    AxisOutcome& judged = axes.emplace_back(AxisOutcome{axis, std::nullopt, Verdict::reached});
    if (axis.last) {
      judged.asked = askedOf(axis, *axis.last, plan);
    }
    if (!axis.last || (outcome.signal != 0 && axis.counts.left() > 0)) {
      judged.verdict = Verdict::stopped;
    } else if (!isSameValue(*judged.asked, axis.last->value)) {
      judged.verdict = Verdict::limited;
    }
    if (outcome.signal != 0) {
      continue;
    }
    if (axis.isHeld) {
      judged.verdict = Verdict::held;
      continue;
    }
    for (const std::string& reason : shortfalls(axis, result.session.tolerance)) {
      judged.verdict = Verdict::missed;
      outcome.errors.push_back(general(reason));
    }
    if (axis.counts.refused > 0) {
      judged.verdict = Verdict::missed;
    }
  }
  return axes;
}

Finding droppedRowsFinding(const std::string& output, std::uint64_t rows) {
  return general(
      fmt::format("the {} lacks {}: the disk did not keep up", output, counted(rows, "row")));
}

std::vector<Finding> cycleFindings(const RunResult& result) {
  std::vector<Finding> findings;
  const PaceCount& pace = result.pace;
  const CycleCount& counts = result.counts;
  if (pace.overruns * 100 > counts.cycles) {
    findings.push_back(
        general(fmt::format("{} of {} skipped: the computer did not keep up", pace.overruns,
                            counted(counts.cycles + pace.overruns, "cycle"))));
  }
  if (pace.stalls > 0) {
    const bool caughtUp = result.session.late == Late::catchUp;
    findings.push_back(general(fmt::format(
        "the process stalled {}, {} ms in all; {}",
        pace.stalls == 1 ? "once" : fmt::format("{} times", pace.stalls), pace.stalledMs,
        caughtUp ? "the motion caught up" : "the motion paused as long")));
  }
  if (pace.stands > 0) {
    findings.push_back(
        general(fmt::format("machine time was paused for {}, because commands came too late",
                            counted(pace.stands, "cycle"))));
  }
  for (Finding& finding : findings) {
    finding.isOfCycles = true;
  }
  for (const AxisResult& axis : result.axes) {
    const std::uint64_t external = axis.externalWrites;
    if (counts.cycles > 1 && external * 10 >= counts.cycles * 9) {
      findings.push_back(general(fmt::format(
          "{}: its value was not what the last cycle wrote in {} of {}; either somebody "
          "else commands it, or it does not read back what is written",
          axis.actuator.name, external, counted(counts.cycles, "cycle"))));
    }
  }
  return findings;
}

}  // namespace host
