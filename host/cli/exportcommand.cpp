#include "host/cli/exportcommand.h"
#include "host/cli/options.h"
#include "host/cli/output.h"
#include "host/input/machinefile.h"

#include <memory>

#include "host/base/outputpaths.h"
#include "host/base/visible.h"
#include "host/cli/status.h"
#include "host/engine/library.h"
#include "host/results/preferenceexport.h"
#include "simulation/framework.h"

namespace host {
namespace {

struct ExportOptions {
  std::string machinePath;
  PreferenceExport wanted;
  std::string directory = ".";
};

int exportFrom(const ExportOptions& options) {
  const MachineModel machine = readMachineFile(options.machinePath);
  checkExport(machine, options.wanted, options.directory);
  checkOutputs({{options.wanted.pathIn(options.directory), "preference file"}}, machine.paths);
  const simulation::Machine simulated("", machine.description);
  const simulation::Framework framework(options.directory);
  const Library library(framework.broker());
  say(visible(exportPreferences(options.wanted, options.directory)) + "\n");
  return okStatus;
}

}  // namespace

void addExportCommand(CLI::App& app, Command& chosen) {
  const auto options = std::make_shared<ExportOptions>();
  CLI::App& command = addSubcommand(
      app, "export", "Write the preferences of a device or sub-device to a file",
      "Example:\n"
      "  torvex export examples/humanoid/humanoid.yaml MainBoard mainboard.xml\n\n"
      "Exit status: 0, also if there is nothing to export (with a message); 1 if the file could "
      "not\n"
      "be written; 2 for bad input or wrong usage, or an unknown container.",
      [options] { return exportFrom(*options); }, chosen);
  addMachine(command, options->machinePath);
  addArgument(command, "CONTAINER", options->wanted.container,
              "Name of a device, actuator or sensor");
  addArgument(command, "FILE", options->wanted.file,
              "Name of the preference file, in the folder of --directory");
  addPreferenceDirectory(command, options->directory);
}

}  // namespace host
