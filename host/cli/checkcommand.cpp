#include "host/cli/checkcommand.h"
#include "host/input/machinefile.h"

#include <fmt/format.h>

#include <memory>
#include <set>

#include "host/base/visible.h"
#include "host/cli/status.h"
#include "host/input/motionfile.h"
#include "host/motion/plan.h"
#include "host/motion/rehearsal.h"
#include "host/results/findings.h"

namespace host {
namespace {

struct CheckOptions {
  std::string machinePath;
  std::vector<std::string> motionPaths;
  Timing timing;
};

int check(const CheckOptions& options) {
  const MachineModel machine = readMachineFile(options.machinePath);
  const std::vector<CommandBatch> batches = readMotionFiles(options.motionPaths, machine);
  const Plan plan = planRun(machine, batches, options.timing);
  Findings findings(machine, plan);
  rehearse(machine, plan, findings);
  bool refused = false;
  for (const Finding& finding : findings.all()) {
    refused = refused || finding.isRefusal;
    complain(shown(finding, finding.isRefusal ? "error" : "warning") + "\n");
  }
  std::set<int> actuators;
  for (const CommandBatch& batch : batches) {
    actuators.insert(batch.actuators.begin(), batch.actuators.end());
  }
  say(fmt::format("{}: batches: {}, actuators they move: {}, findings: {}\n", visible(machine.name),
                  batches.size(), actuators.size(), findings.all().size()));
  if (refused) {
    return badInputStatus;
  }
  return findings.all().empty() && !outputFailed() ? okStatus : shortfallStatus;
}

}  // namespace

void addCheckCommand(CLI::App& app, Command& chosen) {
  CLI::App& command =
      *app.add_subcommand("check", "Check motions against a machine, without moving it");
  const auto options = std::make_shared<CheckOptions>();
  command.footer(
      "Example:\n"
      "  torvex check examples/humanoid/humanoid.yaml examples/humanoid/wave.yaml\n\n"
      "Exit status: 0 when all is well; 1 when targets lie outside limits, segments are steeper\n"
      "than an actuator may move, or points come too late; 2 for what 'torvex run' would refuse.");
  addMachine(command, options->machinePath);
  addMotions(command, options->motionPaths);
  addTiming(command, options->timing);
  command.callback([options, &chosen] { chosen = [options] { return check(*options); }; });
}

}  // namespace host
