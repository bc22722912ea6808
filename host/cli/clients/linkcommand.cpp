#include "host/cli/clients/linkcommand.h"

#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "host/base/visible.h"
#include "host/cli/clients/client.h"
#include "host/cli/output.h"
#include "host/client/doorclient.h"
#include "host/client/doors.h"

namespace host {

void addLinkCommand(CLI::App& app, Command& chosen) {
  const auto machine = std::make_shared<std::string>();
  CLI::App& command = addSubcommand(
      app, "link", "Print a link to the page of a running machine",
      std::string("The link works once, within ten minutes, in a browser on this computer. The "
                  "machine must be\n"
                  "served with --http.\n\n") +
          clientStatusText,
      [machine] {
        return clientStatus([&] {
          const Json answer = DoorClient(doorOf(*machine)).post("/v1/links", Json::object());
          return writeOut(visible(textOf(answer, "link")) + "\n");
        });
      },
      chosen);
  addMachineName(command, *machine);
}

}  // namespace host
