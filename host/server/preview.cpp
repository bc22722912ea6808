#include "host/server/preview.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "host/base/values.h"
#include "host/motion/rehearsal.h"
#include "host/results/findings.h"

namespace host {
namespace {

/// For all axes together, so that a preview takes seconds at most.
std::uint64_t walkedPerAxis(const MachineModel& machine) {
  return mostWalked / std::max<std::size_t>(machine.description.actuators.size(), 1);
}

Json warningsJson(const MachineModel& machine, const Plan& plan) {
  Findings findings(machine, plan);
  rehearse(machine, plan, findings, walkedPerAxis(machine));
  Json warnings = Json::array();
  for (const Finding& finding : findings.all()) {
    Json warning = {{"file", finding.path}, {"message", finding.text}};
    if (finding.location.line != 0) {
      warning["line"] = finding.location.line;
      warning["column"] = finding.location.column;
    }
    warnings.push_back(std::move(warning));
  }
  return warnings;
}

/// Of each curve.
std::int64_t mostPointsOf(std::size_t curves) {
  constexpr std::size_t most = 2000;
  constexpr std::size_t mostInAll = 200'000;
  constexpr std::size_t least = 100;
  return static_cast<std::int64_t>(
      std::clamp(mostInAll / std::max<std::size_t>(curves, 1), least, most));
}

Json curveJson(const MachineModel& machine, const Plan& plan, std::int64_t durationMs) {
  std::set<int> moved;
  for (const ScheduledBatch& batch : plan.batches) {
    moved.insert(batch.commands->actuators.begin(), batch.commands->actuators.end());
  }
  const std::int64_t mostPoints = mostPointsOf(moved.size());
  const std::int64_t cycleMs = plan.schedule.cycleMs;
  const std::int64_t stepMs = cycleMs * (durationMs / (cycleMs * (mostPoints - 1)) + 1);
  const std::vector<std::vector<float>> paths =
      commandedPaths(machine, plan, {stepMs, durationMs + stepMs - 1}, walkedPerAxis(machine));
  Json curve = Json::object();
  for (const int actuator : moved) {
    Json& points = curve[valueKey(machine.actuator(actuator))] = Json::array();
    std::int64_t timeMs = 0;
    for (const float value : paths[static_cast<std::size_t>(actuator)]) {
      points.push_back(Json::array({timeMs, value}));
      timeMs += stepMs;
    }
  }
  return curve;
}

}  // namespace

std::string printedPreview(const MachineModel& machine, const Plan& plan) {
  const std::int64_t durationMs = lastDueMs(plan);
  return printed({{"warnings", warningsJson(machine, plan)},
                  {"curve", curveJson(machine, plan, durationMs)},
                  {"approach_ms", plan.schedule.approachMs},
                  {"duration_ms", durationMs}},
                 -1);
}

}  // namespace host
