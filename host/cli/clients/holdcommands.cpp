#include "host/cli/clients/holdcommands.h"

#include <fmt/format.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/base/counted.h"
#include "host/cli/clients/client.h"
#include "host/cli/status.h"
#include "host/client/doorclient.h"
#include "host/client/doors.h"

namespace host {
namespace {

struct AxesOptions {
  std::vector<std::string> axes;
  std::string machine;
};

int stop(const AxesOptions& options) {
  const Json axes = options.axes.empty() ? Json("all") : Json(options.axes);
  const Json body = {{"batches", Json::array({Json{{"stop", axes}}})}};
  DoorClient(doorOf(options.machine)).post("/v1/batches", body);
  say("stopped\n");
  return okStatus;
}

int holdOrRelease(const AxesOptions& options, const char* target, const char* done) {
  const Json body = options.axes.empty() ? Json::object() : Json{{"axes", options.axes}};
  const Json answer = DoorClient(doorOf(options.machine)).post(target, body);
  say(fmt::format("{}: {}\n", done, counted(memberOf(answer, "axes").size(), "actuator")));
  return okStatus;
}

void add(CLI::App& app, Command& chosen, const char* name, const char* what,
         const std::string& footer, const std::function<int(const AxesOptions&)>& run) {
  const auto options = std::make_shared<AxesOptions>();
  CLI::App& command = addSubcommand(
      app, name, what, footer + "\n\n" + clientStatusText,
      [options, run] { return clientStatus([&] { return run(*options); }); }, chosen);
  addArguments(command, "ACTUATOR", options->axes, false, "Names of actuators (default: all)");
  addMachineName(command, options->machine);
}

}  // namespace

void addHoldCommands(CLI::App& app, Command& chosen) {
  add(app, chosen, "stop", "Bring a running machine to rest",
      "What waits is cleared, and the actuators come to rest along a ramp. Those that somebody\n"
      "owns are refused; 'torvex hold' is not.",
      stop);
  add(app, chosen, "hold", "Bring a running machine to rest, and keep it there",
      "As 'torvex stop', whoever owns the actuators; then everything is refused until\n"
      "'torvex release'. Nothing is resumed.",
      [](const AxesOptions& options) { return holdOrRelease(options, "/v1/hold", "held"); });
  add(app, chosen, "release", "End the hold of a running machine",
      "Frees actuators that the guard holds, too.",
      [](const AxesOptions& options) { return holdOrRelease(options, "/v1/release", "released"); });
}

}  // namespace host
