#include "host/cli/clients/holdcommands.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/base/counted.h"
#include "host/cli/clients/client.h"
#include "host/cli/output.h"
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

Json bodyOf(const AxesOptions& options) {
  return options.axes.empty() ? Json::object() : Json{{"axes", options.axes}};
}

int hold(const AxesOptions& options) {
  const Json answer = DoorClient(doorOf(options.machine)).post("/v1/hold", bodyOf(options));
  say(fmt::format("held: {}\n", counted(memberOf(answer, "axes").size(), "actuator")));
  return okStatus;
}

int release(const AxesOptions& options) {
  DoorClient door(doorOf(options.machine));
  const Json before = door.get("/v1/machine");
  const Json answer = door.post("/v1/release", bodyOf(options));
  const Json& released = memberOf(answer, "axes");
  const Json& axes = memberOf(before, "axes");
  const auto count =
      static_cast<std::uint64_t>(std::count_if(axes.begin(), axes.end(), [&](const Json& axis) {
        return !memberOf(axis, "held").is_null() &&
               std::count(released.begin(), released.end(), memberOf(axis, "name")) > 0;
      }));
  say(count == 0 ? std::string("nothing was held\n")
                 : fmt::format("released: {}\n", counted(count, "actuator")));
  return okStatus;
}

/// "/axes/0" of a hold or a release, "/batches/0/stop/0" of a stop.
std::string fieldName(const AxesOptions& options, const std::string& path) {
  const std::string axis = argumentAt(path, "/axes/", options.axes);
  return axis.empty() ? argumentAt(path, "/batches/0/stop/", options.axes) : axis;
}

void add(CLI::App& app, Command& chosen, const char* name, const char* what,
         const std::string& footer, const std::function<int(const AxesOptions&)>& run) {
  const auto options = std::make_shared<AxesOptions>();
  CLI::App& command = addSubcommand(
      app, name, what, footer + "\n\n" + clientStatusText,
      [options, run] {
        return clientStatus([&] { return run(*options); },
                            [&](const std::string& path) { return fieldName(*options, path); });
      },
      chosen);
  addArguments(command, "ACTUATOR", options->axes, false, "Names of actuators (default: all)");
  addMachineName(command, options->machine);
}

}  // namespace

void addHoldCommands(CLI::App& app, Command& chosen) {
  add(app, chosen, "stop", "Ramp a running machine to rest",
      "Clears the waiting points and ramps the actuators to rest. Refused if somebody else owns\n"
      "one of them; 'torvex hold' is not.",
      stop);
  add(app, chosen, "hold", "Ramp a running machine to rest, and refuse all commands",
      "Stops the actuators like 'torvex stop', whoever owns them. All commands for them are "
      "refused\n"
      "until 'torvex release'. Nothing is resumed then.",
      hold);
  add(app, chosen, "release", "End the hold of a running machine",
      "Also releases actuators that the guard holds. Nothing is resumed.", release);
}

}  // namespace host
