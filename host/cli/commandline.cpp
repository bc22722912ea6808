#include "host/cli/commandline.h"

#include "host/cli/checkcommand.h"
#include "host/cli/clients/bridgecommand.h"
#include "host/cli/clients/eventscommand.h"
#include "host/cli/clients/holdcommands.h"
#include "host/cli/clients/linkcommand.h"
#include "host/cli/clients/playcommand.h"
#include "host/cli/clients/pscommand.h"
#include "host/cli/clients/sendcommand.h"
#include "host/cli/clients/valuecommands.h"
#include "host/cli/doctorcommand.h"
#include "host/cli/documentcommands.h"
#include "host/cli/exportcommand.h"
#include "host/cli/fleet/fleetcommand.h"
#include "host/cli/listcommand.h"
#include "host/cli/recordings/convertcommand.h"
#include "host/cli/recordings/infocommand.h"
#include "host/cli/recordings/plotcommand.h"
#include "host/cli/recordings/replaycommand.h"
#include "host/cli/runcommand.h"
#include "host/cli/servecommand.h"
#include "host/cli/status.h"
#include "host/cli/watchcommand.h"

namespace host {
namespace {

void addSubcommands(CLI::App& app, Command& chosen) {
  addRunCommand(app, chosen);
  addServeCommand(app, chosen);
  addCheckCommand(app, chosen);
  addDoctorCommand(app, chosen);
  addExportCommand(app, chosen);
  addInfoCommand(app, chosen);
  addPlotCommand(app, chosen);
  addConvertCommand(app, chosen);
  addReplayCommand(app, chosen);
  addListCommand(app, chosen);
  addWatchCommand(app, chosen);
  addPsCommand(app, chosen);
  addLinkCommand(app, chosen);
  addSendCommand(app, chosen);
  addPlayCommand(app, chosen);
  addHoldCommands(app, chosen);
  addValueCommands(app, chosen);
  addEventsCommand(app, chosen);
  addFleetCommand(app, chosen);
  addBridgeCommand(app, chosen);
  addDocumentCommands(app, chosen);
}

}  // namespace

int runCommandLine(int argc, char** argv) {
  return statusOf([argc, argv] {
    return runChosen(argc, argv, "Runs the timed commands of a machine with actuators",
                     addSubcommands);
  });
}

}  // namespace host
