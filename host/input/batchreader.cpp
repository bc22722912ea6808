#include "host/input/batchreader.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "host/base/counted.h"

namespace host {
namespace {

using Fields = YamlFile::Fields;

constexpr std::array modes = {TimedCommand::MERGE, TimedCommand::REPLACE, TimedCommand::CLEAR_AFTER,
                              TimedCommand::CLEAR_BEFORE};

constexpr std::int64_t longestSeconds = YamlFile::longestMs / 1000;

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

void readItems(const PointReader& reader, const Fields& fields, const YAML::Node& owner,
               CommandBatch& batch) {
  const YamlFile& yaml = reader.yaml();
  const YAML::Node& keyNode = yaml.required(fields, owner, "key");
  const std::string key = yaml.name(keyNode, "key");
  const int actuator = reader.actuatorWithKey(key);
  if (actuator < 0) {
    yaml.report(keyNode, fmt::format("'{}' is not the \"Value\" of an actuator of machine '{}'; "
                                     "'torvex list' shows them",
                                     key, reader.machine().name));
  }
  batch.pointsPath = yaml.path();
  batch.actuators.push_back(actuator);
  for (const YAML::Node& item : yaml.entries(fields, "items")) {
    yaml.attempt([&] { readItem(reader, item, actuator, batch); });
  }
}

/// Exactly one of three.
void readPoints(const PointReader& reader, const Fields& fields, const YAML::Node& owner,
                TrajectorySource& trajectories, CommandBatch& batch) {
  const YamlFile& yaml = reader.yaml();
  const auto trajectory = fields.find("trajectory");
  const auto file = fields.find("trajectory_file");
  if (fields.count("trajectory") + fields.count("trajectory_file") + fields.count("items") != 1) {
    yaml.fail(owner, "a batch needs either a trajectory, or a trajectory_file, or a key and items");
  }
  if (fields.count("items") != 0) {
    readItems(reader, fields, owner, batch);
    return;
  }
  if (const auto key = fields.find("key"); key != fields.end()) {
    yaml.fail(key->second, "a trajectory names its joints itself; the key belongs to items");
  }
  if (trajectory != fields.end()) {
    trajectories.readTrajectoryAt(reader, trajectory->second, batch);
  } else {
    trajectories.readTrajectoryFile(yaml, file->second, batch);
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

/// Steps are what all other actuators do.
void readInterpolation(const PointReader& reader, const YAML::Node& node, CommandBatch& batch) {
  const YamlFile& yaml = reader.yaml();
  const std::string name = yaml.text(node, "interpolation");
  const auto interpolates = [&](int actuator) {
    return actuator >= 0 && reader.machine().actuator(actuator).interpolates;
  };
  batch.interpolation = interpolationWithName(name);
  if (batch.interpolation) {
    return;
  }
  if (name != "step") {
    yaml.fail(node, fmt::format("interpolation is '{}'; use message, linear, smooth or step",
                                name.substr(0, 40)));
  }
  if (std::any_of(batch.actuators.begin(), batch.actuators.end(), interpolates)) {
    yaml.fail(node,
              "interpolation is step, and the batch has an actuator that interpolates; "
              "use 'interpolation: step' in the machine file");
  }
}

void stretch(const YamlFile& yaml, const YAML::Node& node, CommandBatch& batch) {
  const double speed = yaml.number(node, "speed");
  if (!(speed > 0)) {
    yaml.fail(node, fmt::format("speed is {:g}; a number above 0 is needed", speed));
  }
  for (float& velocity : batch.velocities) {
    velocity = static_cast<float>(velocity * speed);
  }
  for (float& acceleration : batch.accelerations) {
    acceleration = static_cast<float>(acceleration * speed * speed);
  }
  for (std::size_t point = 0; point < batch.times.size(); ++point) {
    const double timeMs = std::round(batch.times[point] / speed);
    if (timeMs > static_cast<double>(YamlFile::longestMs)) {
      yaml.fail(node,
                fmt::format("at this speed the batch goes on beyond {} seconds after the start",
                            longestSeconds));
    }
    batch.times[point] = static_cast<std::uint32_t>(timeMs);
    if (point > 0 && batch.times[point] == batch.times[point - 1]) {
      yaml.fail(node, fmt::format("at this speed two points fall on the millisecond {}", timeMs));
    }
  }
}

double shown(const simulation::Actuator& actuator, const hal::AttrGeneric& value) {
  return actuator.typeCode == hal::floatTypeCode ? double{value.asFloat}
                                                 : static_cast<double>(value.asInt);
}

/// The first point at time 0 is the last one of the round before.
void checkThatRoundsMeet(const PointReader& reader, const YAML::Node& node,
                         const CommandBatch& batch) {
  for (std::size_t column = 0; column < batch.actuators.size(); ++column) {
    const simulation::Actuator& actuator = reader.machine().actuator(batch.actuators[column]);
    const double first = shown(actuator, batch.value(0, column));
    const double last = shown(actuator, batch.value(batch.times.size() - 1, column));
    if (first != last) {
      reader.yaml().fail(
          node, fmt::format("a round begins where the one before ends, but '{}' begins at {:g} and "
                            "ends at {:g}; make them equal, or begin behind time 0",
                            actuator.name, first, last));
    }
  }
}

void repeat(const PointReader& reader, const YAML::Node& node, CommandBatch& batch) {
  const YamlFile& yaml = reader.yaml();
  batch.repeat = static_cast<std::uint32_t>(yaml.wholeNumber(node, "repeat", 1, 1e9));
  if (batch.repeat == 1) {
    return;
  }
  if (batch.lastMs() == 0) {
    yaml.fail(node, "a round lasts up to its last point; give one behind time 0");
  }
  if (batch.lastMs() > YamlFile::longestMs - batch.fromMs) {
    yaml.fail(node, fmt::format("{} of {:g} s go on beyond {} seconds after the start",
                                counted(batch.repeat, "round"), batch.times.back() / 1000.0,
                                longestSeconds));
  }
  if (batch.times.front() == 0) {
    checkThatRoundsMeet(reader, node, batch);
  }
}

/// Once its points are known.
void stretchAndRepeat(const PointReader& reader, const Fields& fields, const YAML::Node& node,
                      CommandBatch& batch) {
  const YamlFile& yaml = reader.yaml();
  const auto speed = fields.find("speed");
  if (speed != fields.end()) {
    stretch(yaml, speed->second, batch);
  }
  if (batch.lastMs() > YamlFile::longestMs - batch.fromMs) {
    yaml.fail(speed != fields.end() ? speed->second : node,
              fmt::format("the batch goes on beyond {} seconds after the start", longestSeconds));
  }
  yaml.field(fields, "repeat", [&](const YAML::Node& rounds) { repeat(reader, rounds, batch); });
}

}  // namespace

CommandBatch readBatch(const PointReader& reader, const YAML::Node& node,
                       TrajectorySource& trajectories) {
  const YamlFile& yaml = reader.yaml();
  const Fields fields = yaml.fields(node, "a batch",
                                    {"at", "from", "mode", "interpolation", "trajectory",
                                     "trajectory_file", "key", "items", "speed", "repeat"});
  CommandBatch batch;
  batch.path = yaml.path();
  readMoment(yaml, fields, node, batch);
  const bool hasMode = yaml.field(
      fields, "mode", [&](const YAML::Node& mode) { batch.mode = readMode(yaml, mode); });
  // Times of a batch that is stretched are looked at when it is.
  const std::uint32_t fromMs = batch.fromMs;
  batch.fromMs = fields.count("speed") != 0 ? 0 : fromMs;
  const bool isWhole = yaml.attempt([&] { readPoints(reader, fields, node, trajectories, batch); });
  batch.fromMs = fromMs;
  batch.location = YamlFile::locationOf(node);
  if (!isWhole) {
    throw AlreadyReported();
  }
  if (hasMode && batch.times.empty() && batch.mode != TimedCommand::REPLACE) {
    yaml.fail(node, "items is empty: that does something with the mode replace only");
  }
  yaml.field(fields, "interpolation",
             [&](const YAML::Node& name) { readInterpolation(reader, name, batch); });
  stretchAndRepeat(reader, fields, node, batch);
  return batch;
}

}  // namespace host
