#include "host/cli/servecommand.h"

#include <fmt/format.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/base/outputpaths.h"
#include "host/base/readiness.h"
#include "host/base/stopsignal.h"
#include "host/cli/status.h"
#include "host/engine/torvex.h"
#include "host/engine/trace.h"
#include "host/input/machinefile.h"
#include "host/server/door.h"
#include "host/server/doorplace.h"
#include "host/server/service.h"
#include "simulation/machine.h"

namespace host {
namespace {

struct ServeOptions {
  std::string machinePath;
  std::uint32_t cycleMs = 10;
  SessionOptions session;
  /// Empty: no trace.
  std::string tracePath;
  bool isStrict = true;
  /// Empty: by the machine's name.
  std::string socketPath;
  std::optional<TcpAddress> tcp;
  /// Empty: one is made.
  std::string tokenPath;
  std::vector<std::string> hosts;
  std::vector<std::string> origins;
};

/// "PORT" or "ADDRESS:PORT".
TcpAddress addressNamed(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  TcpAddress tcp;
  std::string port = text;
  if (colon != std::string::npos) {
    tcp.address = text.substr(0, colon);
    port = text.substr(colon + 1);
    if (tcp.address.size() > 2 && tcp.address.front() == '[' && tcp.address.back() == ']') {
      tcp.address = tcp.address.substr(1, tcp.address.size() - 2);
    }
  }
  const bool isNumber = !port.empty() && port.size() <= 5 &&
                        port.find_first_not_of("0123456789") == std::string::npos;
  const int number = isNumber ? std::stoi(port) : 0;
  if (number < 1 || number > 65535) {
    refuseOption("--http", "'" + text + "' is not PORT or ADDRESS:PORT");
  }
  tcp.port = static_cast<std::uint16_t>(number);
  return tcp;
}

/// Names of this computer with the port, as clients may have them.
Access accessOf(const ServeOptions& options) {
  Access access;
  access.origins = options.origins;
  if (!options.tcp) {
    return access;
  }
  const auto& [address, port] = *options.tcp;
  const bool isIpv6 = address.find(':') != std::string::npos;
  std::vector<std::string> names = {"localhost", "127.0.0.1", "[::1]"};
  names.push_back(isIpv6 ? "[" + address + "]" : address);
  names.insert(names.end(), options.hosts.begin(), options.hosts.end());
  for (const std::string& name : names) {
    access.hosts.push_back(fmt::format("{}:{}", name, port));
    access.origins.push_back("http://" + access.hosts.back());
    if (port == 80) {
      access.hosts.push_back(name);
      access.origins.push_back("http://" + name);
    }
  }
  access.token = options.tokenPath.empty() ? randomToken() : readTokenFile(options.tokenPath);
  return access;
}

/// Of all values, from the first cycle on.
void openTrace(const ServeOptions& options, Torvex& torvex, std::optional<Trace>& trace) {
  std::vector<std::string> names;
  for (const TracedColumn& column : torvex.columns()) {
    names.push_back(column.name);
  }
  trace.emplace(options.tracePath, names, std::vector<bool>(names.size(), true));
  torvex.setTrace(&*trace);
}

void announce(const ServeOptions& options, const Torvex& torvex, const DoorPlace& place,
              const std::string& tokenPath) {
  for (const std::string& refused : prepareRealtime(options.session.cycleScheduling)) {
    complain("torvex: warning: " + refused + "\n");
  }
  say(fmt::format("{} at {}, a cycle every {} ms\n", options.machinePath, place.path(),
                  torvex.cycleMs()));
  if (options.tcp) {
    say(fmt::format("http://{}:{}, token in {}\n", options.tcp->address, options.tcp->port,
                    tokenPath));
  }
}

int serve(const ServeOptions& options) {
  const MachineModel machine = readMachineFile(options.machinePath);
  if (!options.tracePath.empty()) {
    checkOutputs({{options.tracePath, "trace"}}, machine.paths);
  }
  const StopSignal stopSignal;
  DoorPlace place(options.socketPath.empty() ? defaultDoorPath(machine.name) : options.socketPath);
  const Access access = accessOf(options);
  Plan plan;
  plan.schedule.cycleMs = options.cycleMs;
  plan.schedule.approachMs = 0;
  std::optional<Trace> trace;
  Torvex torvex(machine, plan, options.session);
  const ServiceOptions serviceOptions{options.isStrict, options.session.guard,
                                      options.session.poolName,
                                      options.session.preferenceDirectory};
  Service service(machine, torvex, serviceOptions);
  {
    Door door(place.listen(), options.tcp, access, service);
    std::string tokenPath = options.tokenPath;
    if (options.tcp && tokenPath.empty()) {
      tokenPath = place.writeToken(access.token);
    }
    if (!options.tracePath.empty()) {
      openTrace(options, torvex, trace);
    }
    announce(options, torvex, place, tokenPath);
    Desk& desk = torvex.engine().desk();
    desk.setReader([&door](std::uint64_t stall) { door.askToRead(stall); });
    door.open([&desk](std::uint64_t stall) { desk.haveReadAll(stall); });
    tellSystemd("READY=1");
    torvex.run([](std::int64_t) {});
    tellSystemd("STOPPING=1");
  }
  if (trace) {
    trace->finish();
  }
  const CycleCount& counts = torvex.result().counts;
  say(fmt::format("ended by signal {} after {} cycles, {} overruns\n", StopSignal::received(),
                  std::uint64_t{counts.cycles}, torvex.result().pace.overruns));
  return okStatus;
}

void addDoor(CLI::App& command, ServeOptions& options) {
  addOption(command,
            {"--socket", "PATH",
             "The socket (default: torvex/NAME.sock in the folder of this user's sockets)", ""},
            options.socketPath);
  addOption(
      command,
      {"--http", "[ADDRESS:]PORT",
       "Clients may also come by TCP, with a token; on loopback unless an address is given", ""},
      [&options](const std::string& text) { options.tcp = addressNamed(text); });
  addOption(
      command,
      {"--token-file", "FILE", "The token to ask for (default: a new one beside the socket)", ""},
      options.tokenPath);
  addRepeatable(command,
                {"--host", "NAME", "A further name of this computer that TCP clients may use", ""},
                [&options](const std::string& text) { options.hosts.push_back(text); });
  addRepeatable(command,
                {"--origin", "URL", "Pages of this origin may come in, with the token", ""},
                [&options](const std::string& text) { options.origins.push_back(text); });
}

}  // namespace

void addServeCommand(CLI::App& app, Command& chosen) {
  const auto options = std::make_shared<ServeOptions>();
  options->session.waitsForSignal = true;
  CLI::App& command = addSubcommand(
      app, "serve", "Keep a machine alive for clients that command it",
      "Example:\n"
      "  torvex serve examples/humanoid/humanoid.yaml\n\n"
      "Clients speak HTTP with JSON on the socket; docs/api.md has the interface. A signal brings\n"
      "the machine to rest and ends it.\n\n"
      "Exit status: 0 after a signal; 1 when it failed meanwhile; 2 for bad input or usage, and\n"
      "when another process serves this machine.",
      [options] { return serve(*options); }, chosen);
  addMachine(command, options->machinePath);
  addCycle(command, options->cycleMs);
  addCycleScheduling(command, options->session.cycleScheduling);
  addLate(command, options->session.late);
  addGuard(command, options->session.guard);
  addFlag(command, "--strict,!--no-strict", options->isStrict,
          "Refuse what is too fast or beyond the limits (default); with --no-strict limits and "
          "guard deal with it");
  addDoor(command, *options);
  addOption(command, {"--trace", "FILE.csv", "Write every cycle to this CSV file", ""},
            options->tracePath);
  addPreferenceDirectory(command, options->session.preferenceDirectory);
  addPool(command, options->session.poolName);
  addPoolMode(command, options->session.poolMode);
}

}  // namespace host
