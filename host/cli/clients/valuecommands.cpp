#include "host/cli/clients/valuecommands.h"

#include <fmt/format.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "host/base/attributekey.h"
#include "host/base/stopsignal.h"
#include "host/base/textfile.h"
#include "host/base/usererror.h"
#include "host/base/visible.h"
#include "host/cli/clients/client.h"
#include "host/cli/output.h"
#include "host/cli/status.h"
#include "host/client/doorclient.h"
#include "host/client/doors.h"

namespace host {
namespace {

struct GetOptions {
  std::vector<std::string> keys;
  std::string machine;
  bool actuators = false;
  bool keysAlone = false;
  bool json = false;
};

struct SetOptions {
  std::string key;
  std::string value;
  std::string machine;
};

std::string valuesTarget(const std::vector<std::string>& keys) {
  std::string target = "/v1/values";
  for (const std::string& key : keys) {
    target +=
        (target.find('?') == std::string::npos ? "?key=" : "&key=") + percentEncoded(keyGiven(key));
  }
  return target;
}

/// Leaves out what is no value of an actuator.
void keepActuators(DoorClient& door, Json& values) {
  const Json machine = door.get("/v1/machine");
  Json kept = Json::object();
  for (const Json& axis : memberOf(machine, "axes")) {
    const std::string key = textOf(axis, "key");
    if (const auto value = values.find(key); value != values.end()) {
      kept[key] = *value;
    }
  }
  values = std::move(kept);
}

int getValues(const GetOptions& options) {
  const StopSignal stopSignal;
  DoorClient door(doorOf(options.machine));
  Json answer = door.get(valuesTarget(options.keys));
  if (options.actuators) {
    keepActuators(door, answer["values"]);
  }
  if (options.json) {
    return writeOut(printed(answer, 2) + "\n");
  }
  const Json values = memberOf(answer, "values");
  std::string lines;
  if (options.keysAlone) {
    for (const auto& value : values.items()) {
      lines += visible(bareKey(value.key())) + "\n";
    }
    return writeOut(lines);
  }
  for (const auto& value : values.items()) {
    lines += values.size() == 1 && options.keys.size() == 1
                 ? shown(value.value()) + "\n"
                 : fmt::format("{} {}\n", visible(value.key()), shown(value.value()));
  }
  return writeOut(lines);
}

/// The axis with this value's key; null when there is none.
Json axisWithKey(DoorClient& door, const std::string& key) {
  const Json machine = door.get("/v1/machine");
  for (const Json& axis : memberOf(machine, "axes")) {
    if (textOf(axis, "key") == fullKey(keyGiven(key))) {
      return axis;
    }
  }
  return {};
}

int setValue(const SetOptions& options) {
  double number = 0.0;
  if (!parseNumber(options.value, number)) {
    throw UserError(options.value, {}, "is not a number");
  }
  DoorClient door(doorOf(options.machine));
  const Json axis = axisWithKey(door, options.key);
  if (axis.is_null()) {
    throw UserError(options.key, {},
                    "is not the value of an actuator; 'torvex ps --json' has them");
  }
  if (textOf(axis, "interpolation") != "step") {
    throw UserError(options.key, {},
                    fmt::format("has linear interpolation; use 'torvex send {} {}@SECONDS'",
                                options.key, options.value));
  }
  const Json item = {{"time", 0}, {"value", numberJson(number)}};
  const Json batch = {
      {"key", keyGiven(options.key)}, {"mode", "replace"}, {"items", Json::array({item})}};
  say(takenText(door.post("/v1/batches", {{"batches", Json::array({batch})}})));
  return okStatus;
}

}  // namespace

void addValueCommands(CLI::App& app, Command& chosen) {
  const auto get = std::make_shared<GetOptions>();
  CLI::App& getting = addSubcommand(
      app, "get", "Print values of a running machine",
      "All values are of one cycle. For a single key, prints only the value; otherwise a line\n"
      "KEY VALUE for each.\n\n" +
          std::string(clientStatusText),
      [get] {
        return clientStatus([&] { return getValues(*get); },
                            [](const std::string&) { return std::string(); });
      },
      chosen);
  addArguments(
      getting, "KEY", get->keys, true,
      "Attributes, by key or shell pattern ('*/Value'); a bare key, such as head_yaw/Value, means "
      "Device/SubDeviceList/head_yaw/Value, and the name of an actuator means its value");
  addFlag(getting, "--actuators", get->actuators, "Print only the values of actuators");
  addFlag(getting, "--keys", get->keysAlone, "Print only the keys, bare where possible");
  addFlag(getting, "--json", get->json,
          "Print an object, with the number and the time of the cycle");
  addExclusion(getting, "--keys", "--json");
  addMachineName(getting, get->machine);

  const auto set = std::make_shared<SetOptions>();
  CLI::App& setting = addSubcommand(
      app, "set", "Set an actuator with step interpolation, such as a light",
      "Replaces the waiting points of the actuator. For actuators with linear interpolation, use\n"
      "'torvex send'.\n\n" +
          std::string(clientStatusText),
      [set] {
        return clientStatus([&] { return setValue(*set); },
                            [&](const std::string& path) {
                              return path.rfind("/batches/0/items", 0) == 0 ? set->value
                                     : path.rfind("/batches/0", 0) == 0     ? set->key
                                                                            : path;
                            });
      },
      chosen);
  addArgument(setting, "KEY", set->key, "The actuator, such as chest_light or chest_light/Value");
  addArgument(setting, "VALUE", set->value, "A number");
  addMachineName(setting, set->machine);
}

}  // namespace host
