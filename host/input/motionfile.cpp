#include "host/input/motionfile.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

#include "host/base/textfile.h"
#include "host/input/jointtrajectory.h"
#include "host/input/pointreader.h"
#include "host/input/yaml.h"

namespace host {
namespace {

using Fields = YamlFile::Fields;

/// A short file may name one list many times.
constexpr std::size_t mostLists = 100'000;

constexpr std::array modes = {TimedCommand::MERGE, TimedCommand::REPLACE, TimedCommand::CLEAR_AFTER,
                              TimedCommand::CLEAR_BEFORE};

TimedCommand::commandType readMode(const YamlFile& yaml, const YAML::Node& node) {
  const std::string name = yaml.text(node, "mode");
  const auto* const mode = std::find_if(
      modes.begin(), modes.end(), [&](auto candidate) { return name == modeName(candidate); });
  if (mode == modes.end()) {
    yaml.fail(node, fmt::format("mode is '{}'; use merge, replace, clear_after or clear_before",
                                name.substr(0, 40)));
  }
  return *mode;
}

void readItem(const PointReader& reader, const YAML::Node& item, int actuator,
              CommandBatch& batch) {
  const YamlFile& yaml = reader.yaml();
  const Fields fields = yaml.fields(item, "an item", {"time", "value"});
  yaml.requiredField(fields, item, "time",
                     [&](const YAML::Node& node) { reader.addTime(node, "time", batch); });
  batch.locations.push_back(YamlFile::locationOf(item));
  yaml.requiredField(fields, item, "value", [&](const YAML::Node& node) {
    batch.values.push_back(reader.value(node, actuator, "value"));
  });
}

void readItems(const PointReader& reader, const Fields& list, const YAML::Node& owner,
               CommandBatch& batch) {
  const YamlFile& yaml = reader.yaml();
  const YAML::Node& keyNode = yaml.required(list, owner, "key");
  const std::string key = yaml.name(keyNode, "key");
  const int actuator = reader.actuatorWithKey(key);
  if (actuator < 0) {
    yaml.report(keyNode, fmt::format("'{}' is not the \"Value\" of an actuator of machine '{}'; "
                                     "'torvex list' shows them",
                                     key, reader.machine().name));
  }
  batch.actuators.push_back(actuator);
  for (const YAML::Node& item : yaml.entries(list, "items")) {
    yaml.attempt([&] { readItem(reader, item, actuator, batch); });
  }
}

void readMoment(const YamlFile& yaml, const Fields& fields, const YAML::Node& node,
                CommandBatch& batch) {
  batch.atMs = 0;
  yaml.requiredField(fields, node, "at",
                     [&](const YAML::Node& at) { batch.atMs = yaml.milliseconds(at, "at"); });
  batch.fromMs = *batch.atMs;
  yaml.field(fields, "from",
             [&](const YAML::Node& from) { batch.fromMs = yaml.milliseconds(from, "from"); });
}

CommandBatch readList(const PointReader& reader, const YAML::Node& node) {
  const YamlFile& yaml = reader.yaml();
  const Fields fields =
      yaml.fields(node, "a list", {"at", "from", "mode", "trajectory", "key", "items"});
  CommandBatch batch;
  batch.path = yaml.path();
  batch.location = YamlFile::locationOf(node);
  readMoment(yaml, fields, node, batch);
  const bool hasMode = yaml.requiredField(
      fields, node, "mode", [&](const YAML::Node& mode) { batch.mode = readMode(yaml, mode); });
  const auto trajectory = fields.find("trajectory");
  const auto items = fields.find("items");
  if ((trajectory != fields.end()) == (items != fields.end())) {
    yaml.fail(node, "a list needs either a trajectory, or a key and items");
  }
  if (trajectory == fields.end()) {
    readItems(reader, fields, node, batch);
  } else if (const auto key = fields.find("key"); key != fields.end()) {
    yaml.fail(key->second, "a trajectory names its joints itself; the key belongs to items");
  } else {
    readJointTrajectory(reader, trajectory->second, batch);
  }
  if (hasMode && items != fields.end() && items->second.size() == 0 &&
      batch.mode != TimedCommand::REPLACE) {
    yaml.fail(node, "items is empty: that does something with the mode replace only");
  }
  return batch;
}

void takeCommands(const YamlFile& yaml, const YAML::Node& node, const CommandBatch& batch,
                  std::size_t& count) {
  count += batch.values.size();
  if (count > mostCommands) {
    yaml.stop(node, fmt::format("the motions up to here hold more than {} commands", mostCommands));
  }
}

std::vector<CommandBatch> readLists(const PointReader& reader, std::size_t& count) {
  const YamlFile& yaml = reader.yaml();
  const Fields fields = yaml.fields(yaml.root(), "the file", {"lists"});
  std::vector<CommandBatch> batches;
  const YAML::Node lists = yaml.entries(fields, "lists");
  for (const YAML::Node& list : lists) {
    if (batches.size() == mostLists) {
      yaml.stop(list, fmt::format("the file up to here holds more than {} lists", mostLists));
    }
    yaml.attempt([&] {
      batches.push_back(readList(reader, list));
      takeCommands(yaml, list, batches.back(), count);
    });
  }
  if (lists.size() == 0) {
    yaml.fail(yaml.root(), "lists: at least one list is needed");
  }
  return batches;
}

std::vector<CommandBatch> readMotionFile(const std::string& path, const MachineModel& machine,
                                         std::size_t& count, ErrorCollector& errors) {
  const YamlFile yaml(path, readFile(path, YamlFile::maxBytes), errors);
  const PointReader reader(yaml, machine);
  if (yaml.root().IsMap() && yaml.root()["lists"]) {
    return readLists(reader, count);
  }
  CommandBatch batch;
  batch.path = path;
  batch.location = YamlFile::locationOf(yaml.root());
  readJointTrajectory(reader, yaml.root(), batch);
  takeCommands(yaml, yaml.root(), batch, count);
  return {std::move(batch)};
}

}  // namespace

std::vector<CommandBatch> readMotionFiles(const std::vector<std::string>& paths,
                                          const MachineModel& machine) {
  std::vector<CommandBatch> batches;
  std::size_t count = 0;
  ErrorCollector errors;
  for (const std::string& path : paths) {
    errors.attempt([&] {
      for (CommandBatch& batch : readMotionFile(path, machine, count, errors)) {
        batches.push_back(std::move(batch));
      }
    });
  }
  errors.throwIfAny();
  return batches;
}

}  // namespace host
