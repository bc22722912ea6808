#include "host/cli/clients/pscommand.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "host/base/clocks.h"
#include "host/base/stopsignal.h"
#include "host/base/visible.h"
#include "host/cli/clients/client.h"
#include "host/cli/output.h"
#include "host/cli/status.h"
#include "host/client/doorclient.h"
#include "host/client/doors.h"
#include "host/results/table.h"

namespace host {
namespace {

/// What a machine says of itself; none when it does not run.
std::optional<Json> machineAt(const MachinePlace& place) {
  try {
    return DoorClient(place.socketPath).get("/v1/machine");
  } catch (const NoMachine&) {
    return std::nullopt;
  } catch (const DoorClosed&) {
    return std::nullopt;
  }
}

std::string sinceText(const Json& machine) {
  const std::time_t started = numberOf(machine, "started_ms") / msPerSecond;
  return fmt::format("{:%Y-%m-%d %H:%M:%S}", fmt::localtime(started));
}

std::string ownersText(const Json& machine) {
  std::string owners;
  for (const Json& commander : memberOf(machine, "commanders")) {
    owners += fmt::format("{}{} ({})", owners.empty() ? "" : ", ",
                          visible(textOf(commander, "name")), memberOf(commander, "axes").size());
  }
  return owners.empty() ? "-" : owners;
}

std::string stateText(const Json& machine) {
  std::size_t held = 0;
  const Json axes = memberOf(machine, "axes");
  for (const Json& axis : axes) {
    held += memberOf(axis, "held").is_null() ? 0 : 1;
  }
  return held == 0 ? "runs" : held == axes.size() ? "held" : fmt::format("{} held", held);
}

int listMachines(bool json) {
  const StopSignal stopSignal;
  Json machines = Json::array();
  Table table({"machine", "pid", "since", "axes", "state", "owners (axes)"});
  for (const MachinePlace& place : doorsOfUser()) {
    std::optional<Json> machine;
    try {
      machine = machineAt(place);
    } catch (const DoorRefusal& refusal) {
      complain(fmt::format("torvex: warning: {}: {}", visible(place.name),
                           visibleLines(refusal.what())));
    }
    if (!machine) {
      continue;
    }
    table.add({visible(place.name), std::to_string(numberOf(*machine, "pid")), sinceText(*machine),
               std::to_string(memberOf(*machine, "axes").size()), stateText(*machine),
               ownersText(*machine)});
    machines.push_back(*machine);
  }
  if (json) {
    return writeOut(printed(machines, 2) + "\n");
  }
  if (machines.empty()) {
    complain("torvex: no machine runs; start one with 'torvex serve MACHINE'\n");
    return okStatus;
  }
  return writeOut(table.text());
}

}  // namespace

void addPsCommand(CLI::App& app, Command& chosen) {
  const auto json = std::make_shared<bool>(false);
  CLI::App& command = addSubcommand(
      app, "ps", "List the machines that run under 'torvex serve'",
      "Lists the machines of this user: process, start time, state, and who owns how many axes.\n\n"
      "Exit status: 0; 1 if the list could not be written; 2 for wrong usage.",
      [json] { return clientStatus([&] { return listMachines(*json); }); }, chosen);
  addFlag(command, "--json", *json,
          "Print an array of what GET /v1/machine answers for each machine");
}

}  // namespace host
