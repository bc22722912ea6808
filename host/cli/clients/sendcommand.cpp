#include "host/cli/clients/sendcommand.h"

#include <fmt/format.h>

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "host/base/textfile.h"
#include "host/base/usererror.h"
#include "host/cli/clients/client.h"
#include "host/cli/clients/motionrequest.h"
#include "host/cli/output.h"
#include "host/cli/status.h"
#include "host/client/doorclient.h"
#include "host/client/doors.h"
#include "host/input/commandbatch.h"
#include "host/input/motiontexts.h"

namespace host {
namespace {

struct SendOptions {
  std::vector<std::string> what;
  std::optional<std::string> mode;
  std::string machine;
};

/// "VALUE@SECONDS".
Json itemIn(const std::string& text) {
  const std::size_t at = text.find('@');
  double value = 0.0;
  double seconds = 0.0;
  if (at == std::string::npos || !parseNumber(text.substr(0, at), value) ||
      !parseNumber(text.substr(at + 1), seconds)) {
    throw UserError(text, {}, "is not VALUE@SECONDS, such as 0.3@1.5");
  }
  return {{"time", seconds}, {"value", value}};
}

/// The points of one actuator.
Json batchIn(const SendOptions& options) {
  Json items = Json::array();
  for (std::size_t i = 1; i < options.what.size(); ++i) {
    items.push_back(itemIn(options.what[i]));
  }
  return {{"key", keyGiven(options.what.front())},
          {"mode", options.mode.value_or("merge")},
          {"items", items}};
}

std::string fieldName(const SendOptions& options, const std::string& path) {
  const std::vector<std::string> points(options.what.begin() + 1, options.what.end());
  const std::string point = argumentAt(path, "/batches/0/items/", points);
  if (points.empty() || !point.empty()) {
    return points.empty() ? argumentAt(path, "/motions/", options.what) : point;
  }
  return path.rfind("/batches/0", 0) == 0 ? options.what.front() : path;
}

std::string modeNamed(const std::string& text) {
  if (!valueOf(modeWords, text)) {
    refuseOption("--mode",
                 "'" + text + "' is none of merge, replace, clear_after and clear_before");
  }
  return text;
}

int send(const SendOptions& options) {
  const bool isFile = options.what.size() == 1;
  if (isFile && options.mode) {
    throw UserError(options.what.front(), {},
                    "has modes of its own; leave --mode out, or send KEY VALUE@SECONDS");
  }
  if (isFile &&
      !std::filesystem::exists(splitMotionName(options.what.front(), MotionsOnDisk()).path)) {
    throw UserError(options.what.front(), {},
                    "there is no such file; to command an actuator's value, add its points, such "
                    "as 0.3@1.5");
  }
  Json request = Json::object();
  if (!isFile) {
    request["batches"] = std::vector<Json>{batchIn(options)};
  }
  DoorClient door(doorOf(options.machine));
  say(takenText(isFile ? postMotions(door, options.what, request)
                       : door.post("/v1/batches", request)));
  return okStatus;
}

}  // namespace

void addSendCommand(CLI::App& app, Command& chosen) {
  const auto options = std::make_shared<SendOptions>();
  CLI::App& command = addSubcommand(
      app, "send", "Send commands to a running machine, and do not wait",
      "Examples, beside 'torvex serve examples/humanoid/humanoid.yaml':\n"
      "  torvex send head_yaw 0.3@0.5 0@1.0\n"
      "  torvex send examples/humanoid/wave.yaml\n\n"
      "SECONDS count from now. For a motion file, the machine approaches the first point from its\n"
      "present position.\n\n" +
          std::string(clientStatusText),
      [options] {
        return clientStatus([&] { return send(*options); },
                            [&](const std::string& path) { return fieldName(*options, path); });
      },
      chosen);
  addArguments(command, "KEY VALUE@SECONDS | MOTION", options->what, true,
               "An actuator and its points, or a motion file (FILE.yaml or FILE.yaml:NAME)");
  addOption(command,
            {"--mode", "merge|replace|clear_after|clear_before",
             "What happens to the waiting points", "merge"},
            [options](const std::string& text) { options->mode = modeNamed(text); });
  addMachineName(command, options->machine);
}

}  // namespace host
