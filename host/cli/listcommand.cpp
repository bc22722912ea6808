#include "host/cli/listcommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/base/stopsignal.h"
#include "host/base/values.h"
#include "host/base/visible.h"
#include "host/cli/options.h"
#include "host/cli/output.h"
#include "host/engine/library.h"
#include "host/input/machinefile.h"
#include "platform/hal/devicemanager.h"
#include "simulation/machine.h"

namespace host {
namespace {

struct ListOptions {
  std::string machinePath;
  bool actuators = false;
  bool json = false;
};

Json containerName(std::uint8_t kind) {
  if (kind == hal::deviceKind) {
    return "device";
  }
  return kind == hal::subDeviceKind ? Json("sub-device") : Json(kind);
}

Json listed(int index, const std::string& key, bool actuator) {
  hal::DeviceManager& manager = *hal::getDeviceManager();
  int position = 0;
  const std::uint8_t typeCode = manager.getAttrWithIndex(index)->typeCode;
  const std::uint8_t kind = manager.getAttributeContainerWithIndex(index, position)->kind;
  return {{"index", index},
          {"key", key.empty() ? Json() : Json(key)},
          {"type", typeCode},
          {"meaning", valueTypeName(valueType(typeCode))},
          {"container", containerName(kind)},
          {"actuator", actuator},
          {"interpolation", Json()},
          {"minimum", Json()},
          {"maximum", Json()},
          {"maximum_velocity", Json()}};
}

/// All attributes, asked from the library on a machine of its own.
Json attributesOf(const simulation::MachineDescription& description) {
  const simulation::Machine machine("", description);
  Library library;
  const TimedCommandManager& commands = library.commands;
  Json attributes = Json::array();
  for (std::size_t i = 0; i < commands.commandTable.size(); ++i) {
    const int index = static_cast<int>(i);
    attributes.push_back(listed(index, library.names.getAttributeNameWithIndex(index),
                                commands.commandTable[i].isSubDevice == 1));
  }
  for (std::size_t i = 0; i < commands.actuatorCommands.size(); ++i) {
    const TimedCommand* const timeline = commands.actuatorCommands[i];
    const simulation::Actuator& actuator = description.actuators.at(i);
    Json& value = attributes[static_cast<std::size_t>(timeline - commands.commandTable.data())];
    value["interpolation"] = timeline->interpolationPossible == 1 ? "linear" : "step";
    value["minimum"] = limitJson(actuator.typeCode, actuator.minimum);
    value["maximum"] = limitJson(actuator.typeCode, actuator.maximum);
    value["maximum_velocity"] = limitJson(actuator.typeCode, double{actuator.maximumVelocity});
  }
  return attributes;
}

std::string cell(const Json& value) {
  if (value.is_boolean()) {
    return value.get<bool>() ? "yes" : "no";
  }
  return value.is_string() ? visible(value.get<std::string>()) : shown(value);
}

/// A row an attribute, under the names of its members.
std::string table(const Json& attributes) {
  if (attributes.empty()) {
    return {};
  }
  std::vector<std::string> lines(attributes.size() + 1);
  for (const auto& column : attributes.front().items()) {
    std::vector<std::string> cells = {column.key()};
    for (const Json& attribute : attributes) {
      cells.push_back(cell(attribute[column.key()]));
    }
    std::size_t width = 0;
    for (const std::string& text : cells) {
      width = std::max(width, columnsOf(text));
    }
    for (std::size_t i = 0; i < lines.size(); ++i) {
      lines[i] += fmt::format("{}{:<{}}", lines[i].empty() ? "" : "  ", cells[i], width);
    }
  }
  std::string text;
  for (const std::string& line : lines) {
    text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
  }
  return text;
}

int list(const ListOptions& options) {
  const MachineModel machine = readMachineFile(options.machinePath);
  const StopSignal stopSignal;  // a closed pipe is then an error to meet
  Json attributes = attributesOf(machine.description);
  if (options.actuators) {
    attributes.erase(std::remove_if(attributes.begin(), attributes.end(),
                                    [](const Json& one) { return one["actuator"] == false; }),
                     attributes.end());
  }
  return writeOut(options.json ? printed(attributes, 2) + "\n" : table(attributes));
}

}  // namespace

void addListCommand(CLI::App& app, Command& chosen) {
  const auto options = std::make_shared<ListOptions>();
  CLI::App& command = addSubcommand(
      app, "list", "List the attributes of a machine",
      "Example:\n"
      "  torvex list examples/humanoid/humanoid.yaml\n\n"
      "Type codes 1 to 6 are integers, 7 is a float, 8 and 9 are texts; others have no value. An\n"
      "attribute is an actuator if the control cycle writes it: values on the straight line "
      "between\n"
      "two commands, within the limits (linear), or each command unchanged (step). A missing "
      "value\n"
      "is shown as -, in JSON as null.\n\n"
      "Exit status: 0; 1 if the list could not be written; 2 for bad input or wrong usage; 128 + "
      "N\n"
      "if signal N stopped it.",
      [options] { return list(*options); }, chosen);
  addMachine(command, options->machinePath);
  addFlag(command, "--actuators", options->actuators, "List only the values of actuators");
  addFlag(command, "--json", options->json, "Print an array of objects instead of a table");
}

}  // namespace host
