#include "host/input/batchreader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "host/base/counted.h"

namespace host {
namespace {

using Fields = Document::Fields;

constexpr std::int64_t longestSeconds = Document::longestMs / 1000;

TimedCommand::commandType readMode(const Document& document, const Node& node) {
  const std::string name = document.text(node, "mode");
  const std::optional<TimedCommand::commandType> mode = valueOf(modeWords, name);
  if (!mode) {
    document.fail(node, fmt::format("mode is '{}'; use merge, replace, clear_after or clear_before",
                                    name.substr(0, 40)));
  }
  return *mode;
}

void readItem(const PointReader& reader, const Node& item, int actuator, CommandBatch& batch) {
  const Document& document = reader.document();
  const Fields fields = document.fields(item, "an item", {"time", "value"});
  document.requiredField(fields, item, "time",
                         [&](const Node& node) { reader.addTime(node, "time", batch); });
  batch.locations.push_back(item.location());
  document.requiredField(fields, item, "value", [&](const Node& node) {
    batch.values.push_back(reader.value(node, actuator, "value"));
  });
}

void readItems(const PointReader& reader, const Fields& fields, const Node& owner,
               CommandBatch& batch) {
  const Document& document = reader.document();
  const Node& keyNode = document.required(fields, owner, "key");
  const std::string key = document.name(keyNode, "key");
  const int actuator = reader.actuatorWithKey(key);
  if (actuator < 0) {
    document.report(
        keyNode,
        fmt::format("'{}' is not the \"Value\" of an actuator of machine '{}'; {}", key,
                    reader.machine().name,
                    reader.actuatorWithKey(key + "/Value") < 0 ? "'torvex list' shows them"
                                                               : "use '" + key + "/Value'"));
  }
  batch.pointsPath = document.pathOf(fields.at("items"));
  batch.actuators.push_back(actuator);
  for (const Node& item : document.entries(fields, "items")) {
    document.attempt([&] { readItem(reader, item, actuator, batch); });
  }
}

/// Exactly one of three.
void readPoints(const PointReader& reader, const Fields& fields, const Node& owner,
                BatchSource& source, CommandBatch& batch) {
  const Document& document = reader.document();
  const auto trajectory = fields.find("trajectory");
  const auto file = fields.find("trajectory_file");
  if (fields.count("trajectory") + fields.count("trajectory_file") + fields.count("items") != 1) {
    document.fail(owner,
                  "a batch needs either a trajectory, or a trajectory_file, or a key and items");
  }
  if (fields.count("items") != 0) {
    readItems(reader, fields, owner, batch);
    return;
  }
  if (const auto key = fields.find("key"); key != fields.end()) {
    document.fail(key->second, "a trajectory names its joints itself; the key belongs to items");
  }
  if (trajectory != fields.end()) {
    source.readTrajectoryAt(reader, trajectory->second, batch);
  } else {
    source.readTrajectoryFile(document, file->second, batch);
  }
}

/// Steps are what all other actuators do.
void readInterpolation(const PointReader& reader, const Node& node, CommandBatch& batch) {
  const Document& document = reader.document();
  const std::string name = document.text(node, "interpolation");
  const auto interpolates = [&](int actuator) {
    return actuator >= 0 && reader.machine().actuator(actuator).interpolates;
  };
  batch.interpolation = valueOf(interpolationWords, name);
  if (batch.interpolation) {
    return;
  }
  if (name != "step") {
    document.fail(node, fmt::format("interpolation is '{}'; use message, linear, smooth or step",
                                    name.substr(0, 40)));
  }
  if (std::any_of(batch.actuators.begin(), batch.actuators.end(), interpolates)) {
    document.fail(node,
                  "interpolation is step, and the batch has an actuator that interpolates; "
                  "use 'interpolation: step' in the machine file");
  }
}

void stretch(const Document& document, const Node& node, CommandBatch& batch) {
  const double speed = document.number(node, "speed");
  if (!(speed > 0)) {
    document.fail(node, fmt::format("speed is {:g}; a number above 0 is needed", speed));
  }
  for (float& velocity : batch.velocities) {
    velocity = static_cast<float>(velocity * speed);
  }
  for (float& acceleration : batch.accelerations) {
    acceleration = static_cast<float>(acceleration * speed * speed);
  }
  for (std::size_t point = 0; point < batch.times.size(); ++point) {
    const double timeMs = std::round(batch.times[point] / speed);
    if (timeMs > static_cast<double>(Document::longestMs)) {
      document.fail(node,
                    fmt::format("at this speed the batch ends more than {} seconds after the start",
                                longestSeconds));
    }
    batch.times[point] = static_cast<std::uint32_t>(timeMs);
    if (point > 0 && batch.times[point] == batch.times[point - 1]) {
      document.fail(
          node,
          fmt::format("at this speed two points have the same time after rounding: {} ms", timeMs));
    }
  }
}

double shown(const simulation::Actuator& actuator, const hal::AttrGeneric& value) {
  return actuator.typeCode == hal::floatTypeCode ? double{value.asFloat}
                                                 : static_cast<double>(value.asInt);
}

/// The first point at time 0 is the last one of the round before.
void checkThatRoundsMeet(const PointReader& reader, const Node& node, const CommandBatch& batch) {
  for (std::size_t column = 0; column < batch.actuators.size(); ++column) {
    const simulation::Actuator& actuator = reader.machine().actuator(batch.actuators[column]);
    const double first = shown(actuator, batch.value(0, column));
    const double last = shown(actuator, batch.value(batch.times.size() - 1, column));
    if (first != last) {
      reader.document().fail(
          node, fmt::format("a round begins where the one before ends, but '{}' begins at {:g} and "
                            "ends at {:g}; make them equal, or begin after time 0",
                            actuator.name, first, last));
    }
  }
}

void repeat(const PointReader& reader, const Node& node, CommandBatch& batch) {
  const Document& document = reader.document();
  batch.repeat = static_cast<std::uint32_t>(document.wholeNumber(node, "repeat", 1, 1e9));
  if (batch.repeat == 1) {
    return;
  }
  if (batch.lastMs() == 0) {
    document.fail(node, "a round ends at its last point; give a point after time 0");
  }
  if (batch.lastMs() > Document::longestMs - batch.fromMs) {
    document.fail(node, fmt::format("{} of {:g} s end more than {} seconds after the start",
                                    counted(batch.repeat, "round"), batch.times.back() / 1000.0,
                                    longestSeconds));
  }
  if (batch.times.front() == 0) {
    checkThatRoundsMeet(reader, node, batch);
  }
}

/// Once its points are known.
void stretchAndRepeat(const PointReader& reader, const Fields& fields, const Node& node,
                      CommandBatch& batch) {
  const Document& document = reader.document();
  const auto speed = fields.find("speed");
  if (speed != fields.end()) {
    stretch(document, speed->second, batch);
  }
  if (batch.lastMs() > Document::longestMs - batch.fromMs) {
    document.fail(
        speed != fields.end() ? speed->second : node,
        fmt::format("the batch ends more than {} seconds after the start", longestSeconds));
  }
  document.field(fields, "repeat", [&](const Node& rounds) { repeat(reader, rounds, batch); });
}

void readStopped(const PointReader& reader, const Node& node, CommandBatch& batch) {
  const Document& document = reader.document();
  const std::string& machine = reader.machine().name;
  if (node.isScalar() && node.scalar() == "all") {
    batch.actuators.resize(reader.machine().description.actuators.size());
    std::iota(batch.actuators.begin(), batch.actuators.end(), 0);
    return;
  }
  if (!node.isList() || node.size() == 0) {
    document.fail(node, "stop: a list of actuators is needed, or 'all'");
  }
  for (const Node& entry : node.items()) {
    document.attempt([&] {
      const std::string name = document.name(entry, "stop");
      const int actuator = reader.findActuator(name);
      if (actuator < 0) {
        document.fail(entry,
                      fmt::format("machine '{}' has no actuator '{}'; 'torvex list' shows them",
                                  machine, name));
      }
      if (std::count(batch.actuators.begin(), batch.actuators.end(), actuator) > 0) {
        document.fail(entry, fmt::format("'{}' is named twice", name));
      }
      batch.actuators.push_back(actuator);
    });
  }
}

/// It is its own mode, and has nothing but its moment.
CommandBatch readStop(const PointReader& reader, const Fields& fields, const Node& node,
                      BatchSource& source) {
  const Document& document = reader.document();
  CommandBatch batch;
  batch.path = document.pathOf(node);
  batch.pointsPath = batch.path;
  batch.location = node.location();
  batch.mode = TimedCommand::REPLACE;
  batch.isStop = true;
  source.readMoment(document, fields, node, batch);
  for (const auto& [key, value] : fields) {
    if (key != "at" && key != "stop") {
      document.report(value,
                      fmt::format("a stop has no {}; put points into a batch of their own", key));
    }
  }
  document.field(fields, "stop", [&](const Node& stop) { readStopped(reader, stop, batch); });
  return batch;
}

}  // namespace

CommandBatch readBatch(const PointReader& reader, const Node& node, BatchSource& source) {
  const Document& document = reader.document();
  const Fields fields =
      document.fields(node, "a batch",
                      {"at", "from", "mode", "interpolation", "trajectory", "trajectory_file",
                       "key", "items", "speed", "repeat", "stop"});
  if (fields.count("stop") != 0) {
    return readStop(reader, fields, node, source);
  }
  CommandBatch batch;
  batch.path = document.pathOf(node);
  source.readMoment(document, fields, node, batch);
  const bool hasMode = document.field(
      fields, "mode", [&](const Node& mode) { batch.mode = readMode(document, mode); });
  // Times of a batch that is stretched are looked at when it is.
  const std::uint32_t fromMs = batch.fromMs;
  batch.fromMs = fields.count("speed") != 0 ? 0 : fromMs;
  const bool isWhole = document.attempt([&] { readPoints(reader, fields, node, source, batch); });
  batch.fromMs = fromMs;
  batch.location = node.location();
  if (!isWhole) {
    throw AlreadyReported();
  }
  if (hasMode && batch.times.empty() && batch.mode != TimedCommand::REPLACE) {
    document.fail(node, "items is empty; this is possible only with mode replace");
  }
  document.field(fields, "interpolation",
                 [&](const Node& name) { readInterpolation(reader, name, batch); });
  stretchAndRepeat(reader, fields, node, batch);
  return batch;
}

}  // namespace host
