#include "host/cli/checkcommand.h"

#include <fmt/format.h>

#include <memory>
#include <set>
#include <utility>

#include "host/base/counted.h"
#include "host/base/visible.h"
#include "host/cli/options.h"
#include "host/cli/output.h"
#include "host/cli/status.h"
#include "host/input/machinefile.h"
#include "host/input/motionfile.h"
#include "host/motion/plan.h"
#include "host/motion/rehearsal.h"
#include "host/motion/scaling.h"
#include "host/results/checkjson.h"
#include "host/results/report.h"

namespace host {
namespace {

struct CheckOptions {
  std::string machinePath;
  std::vector<std::string> motionPaths;
  MotionOptions motions;
  Timing timing;
  bool json = false;
};

CheckOutcome::Counts countsOf(const std::vector<CommandBatch>& batches) {
  CheckOutcome::Counts counts;
  std::set<int> actuators;
  for (const CommandBatch& batch : batches) {
    actuators.insert(batch.actuators.begin(), batch.actuators.end());
    counts.points += batch.size() * batch.actuators.size();
  }
  counts.batches = batches.size();
  counts.actuators = actuators.size();
  return counts;
}

/// Throws `UserError`; what is known until then is in the outcome.
void examine(const CheckOptions& options, CheckOutcome& outcome) {
  const MachineModel machine = readMachineFile(options.machinePath);
  outcome.machine = machine.name;
  std::vector<CommandBatch> batches =
      readMotionFiles(options.motionPaths, machine, options.motions);
  outcome.counts = countsOf(batches);
  if (options.timing.scales) {
    stretchToLimits(machine, batches, options.timing);
  }
  outcome.stretched = stretchedBatches(batches);
  for (const CommandBatch& batch : batches) {
    outcome.notes.insert(outcome.notes.end(), batch.notes.begin(), batch.notes.end());
  }
  const Plan plan = planRun(machine, batches, options.timing);
  Findings findings(machine, plan);
  rehearse(machine, plan, findings);
  for (Finding& finding : findings.all()) {
    (finding.isFailure ? outcome.errors : outcome.warnings).push_back(std::move(finding));
  }
}

void takeErrors(const UserError& error, CheckOutcome& outcome) {
  for (const auto& [path, location, text] : error.entries()) {
    Finding& finding = outcome.errors.emplace_back();
    finding.path = path;
    finding.location = location;
    finding.text = text;
  }
}

std::string summary(const CheckOutcome& outcome) {
  std::string text;
  for (const std::string& note : outcome.notes) {
    text += noteLine(note);
  }
  return text + fmt::format("{}: {} for {}: {}\n", visible(*outcome.machine),
                            counted(outcome.counts->batches, "batch"),
                            counted(outcome.counts->actuators, "actuator"),
                            counted(outcome.warnings.size() + outcome.errors.size(), "finding"));
}

int check(const CheckOptions& options) {
  CheckOutcome outcome;
  outcome.machinePath = options.machinePath;
  outcome.motionPaths = options.motionPaths;
  outcome.cycleMs = options.timing.cycleMs;
  try {
    examine(options, outcome);
  } catch (const UserError& error) {
    if (!options.json) {
      throw;
    }
    complain(std::string(error.what()) + "\n");
    takeErrors(error, outcome);
    say(checkJson(outcome));
    return badInputStatus;
  }
  complainAll("error", outcome.errors);
  complainAll("warning", outcome.warnings);
  say(options.json ? checkJson(outcome) : summary(outcome));
  if (!outcome.errors.empty()) {
    return badInputStatus;
  }
  return outcome.warnings.empty() ? okStatus : shortfallStatus;
}

}  // namespace

void addCheckCommand(CLI::App& app, Command& chosen) {
  const auto options = std::make_shared<CheckOptions>();
  CLI::App& command = addSubcommand(
      app, "check", "Check motions against a machine, without moving it",
      "Example:\n"
      "  torvex check examples/humanoid/humanoid.yaml examples/humanoid/wave.yaml\n\n"
      "Exit status: 0 without findings; 1 if a motion exceeds the limits of the machine, or "
      "points\n"
      "are late; 2 if 'torvex run' would refuse it.",
      [options] { return check(*options); }, chosen);
  addMachine(command, options->machinePath);
  addMotions(command, options->motionPaths, options->motions);
  addCycle(command, options->timing.cycleMs);
  addTiming(command, options->timing);
  addFlag(command, "--json", options->json, "Print the findings as a JSON object");
}

}  // namespace host
