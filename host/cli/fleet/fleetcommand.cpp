#include "host/cli/fleet/fleetcommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>

#include "host/base/closest.h"
#include "host/base/counted.h"
#include "host/base/stopsignal.h"
#include "host/base/visible.h"
#include "host/cli/clients/client.h"
#include "host/cli/fleet/clockwatch.h"
#include "host/cli/fleet/fleetplay.h"
#include "host/cli/fleet/requests.h"
#include "host/cli/options.h"
#include "host/cli/output.h"
#include "host/cli/status.h"
#include "host/results/table.h"

namespace host {
namespace {

struct FleetOptions {
  std::string action;
  std::string path;
  FleetPlayOptions play;
  bool json = false;
};

/// One machine, as `fleet ps` shows it.
Json seen(const FleetMachine& machine, DoorClient& door) {
  ClockWatch watch;
  watch.askOften(door);
  const ClockOffset offset = watch.offset();
  const Json health = door.get("/v1/health");
  return {{"name", machine.name},
          {"door", machine.door.text()},
          {"state", watch.isHeldUp() ? "stands still" : textOf(health, "status")},
          {"machine_ms", watch.machineMs()},
          {"cycle_ms", watch.clock().cycleMs},
          {"stalls", countOf(health, "stalls")},
          {"offset_ns", offset.offsetNs},
          {"bound_ns", offset.boundNs},
          {"zero_ns", watch.clock().zeroNs}};
}

/// As `seen`, of one that has told nothing.
Json unseen(const FleetMachine& machine) {
  Json one = {{"name", machine.name}, {"door", machine.door.text()}, {"state", "no answer"}};
  for (const char* const member :
       {"machine_ms", "cycle_ms", "stalls", "offset_ns", "bound_ns", "zero_ns"}) {
    one[member] = nullptr;
  }
  return one;
}

std::string fixed(const Json& machine, const char* member, double unit, const char* format) {
  return memberOf(machine, member).is_null()
             ? "-"
             : fmt::format(fmt::runtime(format),
                           static_cast<double>(numberOf(machine, member)) / unit);
}

int list(const Fleet& fleet, const FleetOptions& options) {
  std::map<std::string, Json> found;
  std::mutex mutex;
  const int status = askAll(fleet, [&](const FleetMachine& machine, DoorClient& door) {
    Json one = seen(machine, door);
    const std::lock_guard lock(mutex);
    found[machine.name] = std::move(one);
    return std::string();
  });
  Json machines = Json::array();
  Table table({"machine", "state", "machine time (s)", "cycle (ms)", "stalls", "clock ahead by (s)",
               "to within (ms)", "door"});
  for (const FleetMachine& machine : fleet.machines) {
    const auto each = found.find(machine.name);
    const Json one = each == found.end() ? unseen(machine) : each->second;
    table.add({visible(machine.name), visible(textOf(one, "state")),
               fixed(one, "machine_ms", 1e3, "{:.3f}"), fixed(one, "cycle_ms", 1, "{:g}"),
               fixed(one, "stalls", 1, "{:g}"), fixed(one, "offset_ns", 1e9, "{:.6f}"),
               fixed(one, "bound_ns", 1e6, "{:.3f}"), visible(machine.door.text())});
    machines.push_back(one);
  }
  const int written = writeOut(options.json ? printed(machines, 2) + "\n" : table.text());
  return std::max(status, written);
}

/// Of one that does not answer it is not known whether it does so, now or once it goes on.
Json demand(DoorClient& door, const char* target, const Json& body) {
  try {
    return door.post(target, body);
  } catch (const DoorClosed& closed) {
    throw DoorClosed(fmt::format("{}: it is not known whether it did so", closed.what()));
  }
}

int holdOrRelease(const Fleet& fleet, const char* target, const char* done) {
  return askAll(fleet, [&](const FleetMachine& machine, DoorClient& door) {
    const Json body = machine.axes.empty() ? Json::object() : Json{{"axes", machine.axes}};
    const Json answer = demand(door, target, body);
    return fmt::format("{}: {}", done, counted(memberOf(answer, "axes").size(), "actuator"));
  });
}

int stop(const Fleet& fleet) {
  return askAll(fleet, [](const FleetMachine& machine, DoorClient& door) {
    const Json axes = machine.axes.empty() ? Json("all") : Json(machine.axes);
    demand(door, "/v1/batches", Json{{"batches", Json::array({Json{{"stop", axes}}})}});
    return std::string("stopped");
  });
}

int runAction(const FleetOptions& options) {
  const std::vector<std::string> actions = {"ps", "play", "hold", "release", "stop"};
  if (std::find(actions.begin(), actions.end(), options.action) == actions.end()) {
    complain(fmt::format("torvex: error: ACTION is '{}'; use ps, play, hold, release or stop{}\n",
                         visible(options.action), didYouMean(options.action, actions)));
    return badInputStatus;
  }
  const bool plays = options.action == "play";
  const bool givesPlay = !options.play.motions.empty() || options.play.atSeconds > 0 ||
                         options.play.ignoreUnknownJoints;
  if (!plays && givesPlay) {
    complain("torvex: error: motions, --at and --ignore-unknown-joints are for 'fleet play'\n");
    return badInputStatus;
  }
  if (options.json && options.action != "ps") {
    complain("torvex: error: --json is for 'fleet ps'\n");
    return badInputStatus;
  }
  const StopSignal stopSignal;
  const Fleet fleet = readFleetFile(options.path);
  return plays                         ? playFleet(fleet, options.play)
         : options.action == "ps"      ? list(fleet, options)
         : options.action == "hold"    ? holdOrRelease(fleet, "/v1/hold", "held")
         : options.action == "release" ? holdOrRelease(fleet, "/v1/release", "released")
                                       : stop(fleet);
}

}  // namespace

void addFleetCommand(CLI::App& app, Command& chosen) {
  const auto options = std::make_shared<FleetOptions>();
  CLI::App& command = addSubcommand(
      app, "fleet", "Control several machines together",
      "Actions: ps (state and clock of each machine), play, hold, release, stop. FLEET.yaml has "
      "names\n"
      "and doors:\n"
      "  machines:\n"
      "  - {name: left}                          # a machine of 'torvex ps'\n"
      "  - {name: right, tcp: 192.168.7.2:8080, token_file: right.token}\n"
      "  all_or_none: true                       # if one is lost, the others are held\n\n"
      "play asks all machines first, and begins on all within one cycle, or on none. If it is\n"
      "stopped (Ctrl-C), killed or disconnected, every machine ramps to rest. hold, release and "
      "stop\n"
      "ask all machines at the same time, and wait up to 2 s for each connection and answer.\n"
      "docs/network.md has the rules.\n\n"
      "Exit status: 0; 1 if a machine refused, did not answer or was lost; 2 for bad input or "
      "wrong\n"
      "usage; 128 + N if signal N stopped it.",
      [options] { return runAction(*options); }, chosen);
  addArgument(command, {"ACTION", "ps|play|hold|release|stop", "What to do", ""}, options->action);
  addArgument(command, "FLEET", options->path, "The fleet file (YAML)");
  addArguments(command, "MOTION", options->play.motions, false,
               "For play: FILE or FILE:NAME for all machines, MACHINE=FILE for one (default: the "
               "motions of the fleet file)");
  addOption(command,
            {"--at", "SECONDS", "For play: when all begin, in seconds from now",
             "as soon as all are ready"},
            [options](const std::string& text) {
              options->play.atSeconds = positiveNumber("--at", text);
              if (options->play.atSeconds > 1e6) {
                refuseOption("--at", "the start is more than 1000000 seconds ahead");
              }
            });
  addFlag(command, "--ignore-unknown-joints", options->play.ignoreUnknownJoints,
          "For play: leave out joints of trajectories that a machine cannot move");
  addFlag(command, "--json", options->json, "For ps: print an array of objects");
}

}  // namespace host
