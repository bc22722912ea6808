#include "host/commands/checkcommand.h"

#include <fmt/format.h>

#include <memory>

#include "host/check.h"
#include "host/commands/status.h"
#include "host/input/motion.h"
#include "host/plan.h"

namespace host {
namespace {

struct CheckOptions {
  std::string machinePath;
  std::vector<std::string> motionPaths;
  Timing timing;
};

int check(const CheckOptions& options) {
  const MachineFile machine = readMachineFile(options.machinePath);
  const std::vector<Motion> motions = readMotionFiles(options.motionPaths, machine);
  const Plan plan = planRun(machine, motions, options.timing);
  std::vector<std::string> warnings = lateItems(motions);
  const std::vector<std::string> beyond = limitWarnings(machine, plan);
  warnings.insert(warnings.end(), beyond.begin(), beyond.end());
  for (const std::string& warning : warnings) {
    complain(warning + "\n");
  }
  say(fmt::format("{}: lists of commands: {}, actuators they move: {}, warnings: {}\n",
                  machine.name, motions.size(), plan.actuators.size(), warnings.size()));
  return warnings.empty() && !outputFailed() ? okStatus : shortfallStatus;
}

}  // namespace

void addCheckCommand(CLI::App& app, Command& chosen) {
  CLI::App& command =
      *app.add_subcommand("check", "Check motions against a machine, without moving it");
  const auto options = std::make_shared<CheckOptions>();
  command.footer(
      "Example:\n"
      "  torvex check examples/humanoid/humanoid.yaml examples/humanoid/wave.yaml\n\n"
      "Exit status: 0 when all is well; 1 when targets lie outside limits, ways are steeper than\n"
      "an actuator may move, or items come too late; 2 for what 'torvex run' would refuse.");
  addMachine(command, options->machinePath);
  addMotions(command, options->motionPaths);
  addTiming(command, options->timing);
  command.callback([options, &chosen] { chosen = [options] { return check(*options); }; });
}

}  // namespace host
