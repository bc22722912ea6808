#include "host/cli/commandline.h"

#include <CLI/CLI.hpp>
#include <sstream>

#include "host/base/visible.h"
#include "host/cli/checkcommand.h"
#include "host/cli/doctorcommand.h"
#include "host/cli/exportcommand.h"
#include "host/cli/listcommand.h"
#include "host/cli/runcommand.h"
#include "host/cli/status.h"
#include "host/cli/watchcommand.h"

namespace host {
namespace {

int parseAndRun(int argc, char** argv) {
  CLI::App app("Runs the timed commands of a machine with actuators", "torvex");
  app.set_version_flag("--version", TORVEX_VERSION);
  app.require_subcommand(1);
  app.failure_message([](const CLI::App*, const CLI::Error& error) {
    return visible(std::string("torvex: error: ") + error.what()) + "; see --help\n";
  });
  Command chosen;
  addRunCommand(app, chosen);
  addCheckCommand(app, chosen);
  addDoctorCommand(app, chosen);
  addExportCommand(app, chosen);
  addListCommand(app, chosen);
  addWatchCommand(app, chosen);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    std::ostringstream out;
    std::ostringstream err;
    const bool isHelp = app.exit(error, out, err) == 0;
    say(out.str());
    complain(err.str());
    return isHelp ? okStatus : badInputStatus;
  }
  return chosen();
}

}  // namespace

int runCommandLine(int argc, char** argv) {
  return statusOf([argc, argv] { return parseAndRun(argc, argv); });
}

}  // namespace host
