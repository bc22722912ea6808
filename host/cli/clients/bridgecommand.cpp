#include "host/cli/clients/bridgecommand.h"

#include <fmt/format.h>
#include <net/if.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "host/base/usererror.h"
#include "host/base/visible.h"
#include "host/cli/options.h"
#include "host/cli/output.h"
#include "host/cli/status.h"

namespace host {
namespace {

struct BridgeOptions {
  std::string network;
  std::vector<std::string> machines;
  /// Else as the environment says, or 0.
  std::optional<std::uint32_t> domain;
  std::string interface = "lo";
  double rateHz = 0.0;
  double horizonSeconds = 60.0;
  bool statesAreSensorData = false;
  std::vector<std::string> topics;
};

constexpr std::array<std::string_view, 5> kinds = {
    "joint_states", "commanded_joint_states", "events", "robot_description", "joint_trajectory"};

/// None when it is no domain.
std::optional<std::uint32_t> domainIn(const std::string& text) {
  constexpr std::uint32_t highest = 232;
  std::uint32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, failure] = std::from_chars(text.data(), end, number);
  return failure == std::errc() && stop == end && number <= highest ? std::optional(number)
                                                                    : std::nullopt;
}

double numberUpTo(const std::string& option, const std::string& text, double most) {
  constexpr double least = 0.001;
  const double number = positiveNumber(option, text);
  if (number < least || number > most) {
    refuseOption(option, fmt::format("'{}' is not a number from {:g} to {:g}", text, least, most));
  }
  return number;
}

std::uint32_t domainOf(const BridgeOptions& options) {
  const char* const given = std::getenv("ROS_DOMAIN_ID");
  if (options.domain || given == nullptr || *given == '\0') {
    return options.domain.value_or(0);
  }
  const std::optional<std::uint32_t> domain = domainIn(given);
  if (!domain) {
    throw UserError("ROS_DOMAIN_ID", {}, fmt::format("'{}' is not a domain from 0 to 232", given));
  }
  return *domain;
}

/// It becomes part of a text that DDS parses.
std::string interfaceNamed(const std::string& name) {
  const bool isPlain = std::all_of(name.begin(), name.end(), [](char character) {
    return std::isalnum(static_cast<unsigned char>(character)) != 0 ||
           std::string_view("._-").find(character) != std::string_view::npos;
  });
  if (!isPlain || if_nametoindex(name.c_str()) == 0) {
    refuseOption("--interface", "this computer has no network interface '" + name + "'");
  }
  return name;
}

/// As ROS 2 has names of topics, and "*" for the machine's.
bool isTopic(const std::string& text) {
  constexpr std::size_t longest = 200;
  bool begins = true;
  for (const char character : text) {
    const bool isDigit = std::isdigit(static_cast<unsigned char>(character)) != 0;
    const bool isLetter = std::isalpha(static_cast<unsigned char>(character)) != 0 ||
                          character == '_' || character == '*';
    if (begins ? !isLetter : !isLetter && !isDigit && character != '/') {
      return false;
    }
    begins = character == '/';
  }
  return text.size() <= longest && (text.empty() || !begins);
}

std::string topicGiven(const std::string& text) {
  const std::size_t sign = text.find('=');
  if (std::find(kinds.begin(), kinds.end(), text.substr(0, sign)) == kinds.end() ||
      sign == std::string::npos || !isTopic(text.substr(sign + 1))) {
    refuseOption("--topics",
                 fmt::format("'{}' is not KIND=TOPIC, such as joint_states=*/states; kinds are {}",
                             text, fmt::join(kinds, ", ")));
  }
  return text;
}

std::string programPath() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "torvex-bridge-ros2";
}

/// Becomes the bridge.
int bridgeTo(const BridgeOptions& options) {
  if (options.network != "ros2") {
    complain("torvex: error: there is only a bridge to ros2, not to '" + visible(options.network) +
             "'\n");
    return badInputStatus;
  }
  const nlohmann::json configuration = {
      {"machines", options.machines},      {"domain", domainOf(options)},
      {"interface", options.interface},    {"rate", options.rateHz},
      {"horizon", options.horizonSeconds}, {"sensor_data", options.statesAreSensorData},
      {"topics", options.topics}};
  std::string path = programPath();
  std::string argument =
      configuration.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
  const std::array<char*, 3> arguments = {path.data(), argument.data(), nullptr};
  execv(path.c_str(), arguments.data());
  complain(
      errno == ENOENT
          ? std::string("torvex: error: the bridge was not built: install the Debian packages "
                        "cyclonedds-dev and cyclonedds-tools, and build again\n")
          : fmt::format("torvex: error: {} cannot be started: {}\n", path, std::strerror(errno)));
  return badInputStatus;
}

constexpr char bridgeUsage[] = R"(Example, beside 'torvex serve examples/humanoid/humanoid.yaml':
  torvex bridge ros2 humanoid

Publishes NAME/joint_states, NAME/commanded_joint_states and NAME/events, and executes the
trajectories that arrive on NAME/joint_trajectory; docs/network.md describes the topics. Waits
for machines that do not run. For other names: --topics joint_states=*/states, where * is the
machine's name; without a name after the = the topic is left out.

Exit status: 1 after a failure; 2 for wrong usage, or if the bridge was not built; 128 + N if
signal N stopped it.)";

}  // namespace

void addBridgeCommand(CLI::App& app, Command& chosen) {
  const auto options = std::make_shared<BridgeOptions>();
  CLI::App& command = addSubcommand(
      app, "bridge", "Connect machines to a ROS 2 network", bridgeUsage,
      [options] { return bridgeTo(*options); }, chosen);
  addArgument(command, {"NETWORK", "ros2", "The network to connect to", ""}, options->network);
  addArguments(command, "NAME", options->machines, true,
               "Names of machines as in 'torvex ps', or the paths of their sockets");
  addOption(command,
            {"--domain", "NUMBER", "The DDS domain, 0 to 232 (default: ROS_DOMAIN_ID, or 0)", ""},
            [options](const std::string& text) {
              options->domain = domainIn(text);
              if (!options->domain) {
                refuseOption("--domain", "'" + text + "' is not a domain from 0 to 232");
              }
            });
  addOption(
      command,
      {"--interface", "NAME", "The network interface to use; with lo, nothing leaves this computer",
       options->interface},
      [options](const std::string& text) { options->interface = interfaceNamed(text); });
  addOption(
      command, {"--rate", "HZ", "Joint states per second (default: one per cycle)", ""},
      [options](const std::string& text) { options->rateHz = numberUpTo("--rate", text, 1000); });
  addOption(command,
            {"--horizon", "SECONDS", "How far ahead a trajectory may begin",
             fmt::format("{:g}", options->horizonSeconds)},
            [options](const std::string& text) {
              options->horizonSeconds = numberUpTo("--horizon", text, 1e6);
            });
  addFlag(
      command, "--sensor-data", options->statesAreSensorData,
      "Publish joint states best effort with history depth 5, instead of reliable with depth 10");
  addRepeatable(
      command, {"--topics", "KIND=TOPIC", "Another name for a topic; may be repeated", ""},
      [options](const std::string& text) { options->topics.push_back(topicGiven(text)); });
}

}  // namespace host
