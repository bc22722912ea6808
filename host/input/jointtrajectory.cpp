#include "host/input/jointtrajectory.h"

#include <fmt/format.h>

#include <set>
#include <string>

#include "host/base/counted.h"

namespace host {
namespace {

using Fields = YamlFile::Fields;

void noteStamp(const YamlFile& yaml, const Fields& fields, CommandBatch& batch) {
  const auto header = fields.find("header");
  if (header == fields.end() || header->second.IsNull()) {
    return;
  }
  const Fields parts = yaml.fields(header->second, "header", {"seq", "stamp", "frame_id"});
  const auto stamp = parts.find("stamp");
  if (stamp != parts.end() && yaml.seconds(stamp->second, "header.stamp") != 0) {
    batch.notes.push_back(fmt::format(
        "{}: the header's stamp is ignored; the motion starts with the run", batch.path));
  }
}

void readJointNames(const PointReader& reader, const YAML::Node& names, CommandBatch& batch) {
  const YamlFile& yaml = reader.yaml();
  if (!names.IsSequence() || names.size() == 0) {
    yaml.fail(names, "joint_names: a list of at least one joint is needed");
  }
  const MachineModel& machine = reader.machine();
  std::set<std::string> seen;
  for (const YAML::Node& node : names) {
    const std::string name = node.IsScalar() ? node.Scalar() : "";
    const int actuator = reader.actuatorNamed(name);
    if (actuator < 0) {
      yaml.report(node, machine.uncommandedJoints.count(name) != 0
                            ? fmt::format("joint '{}' has no actuator: it is fixed or follows "
                                          "another joint",
                                          name)
                            : fmt::format("machine '{}' has no joint '{}'", machine.name, name));
    } else if (!seen.insert(name).second) {
      yaml.report(node, fmt::format("joint '{}' is named twice", name));
    }
    batch.actuators.push_back(actuator);
  }
}

void readPoint(const PointReader& reader, const YAML::Node& point, const Fields& fields,
               CommandBatch& batch) {
  const YamlFile& yaml = reader.yaml();
  yaml.requiredField(fields, point, "time_from_start", [&](const YAML::Node& node) {
    reader.addTime(node, "time_from_start", batch);
  });
  batch.locations.push_back(YamlFile::locationOf(point));
  const YAML::Node& positions = yaml.required(fields, point, "positions");
  if (!positions.IsSequence() || positions.size() != batch.actuators.size()) {
    yaml.fail(positions, fmt::format("{} for {}", counted(positions.size(), "position"),
                                     counted(batch.actuators.size(), "joint")));
  }
  std::size_t column = 0;
  for (const YAML::Node& position : positions) {
    const int actuator = batch.actuators[column++];
    yaml.attempt([&] { batch.values.push_back(reader.value(position, actuator, "a position")); });
  }
}

void readPoints(const PointReader& reader, const YAML::Node& points, CommandBatch& batch) {
  static const std::set<std::string> known = {"positions", "velocities", "accelerations",
                                              "effort",    "efforts",    "time_from_start"};
  if (!points.IsSequence() || points.size() == 0) {
    reader.yaml().fail(points, "points: a list of at least one point is needed");
  }
  // A short file may name one row of positions many times.
  if (points.size() > mostCommands / batch.actuators.size()) {
    reader.yaml().stop(points, fmt::format("{} points for {} joints are more than {} commands",
                                           points.size(), batch.actuators.size(), mostCommands));
  }
  batch.times.reserve(points.size());
  batch.locations.reserve(points.size());
  std::set<std::string> readOver;
  for (const YAML::Node& point : points) {
    reader.yaml().attempt([&] {
      const Fields fields = reader.yaml().fields(point, "a point", known);
      for (const auto& [key, node] : fields) {
        if (key != "positions" && key != "time_from_start" && node.size() != 0) {
          readOver.insert(key);
        }
      }
      readPoint(reader, point, fields, batch);
    });
  }
  for (const std::string& key : readOver) {
    batch.notes.push_back(
        fmt::format("{}: {} are ignored; positions and times are used", batch.path, key));
  }
}

}  // namespace

void readJointTrajectory(const PointReader& reader, const YAML::Node& node, CommandBatch& batch) {
  const YamlFile& yaml = reader.yaml();
  const Fields fields = yaml.fields(node, "the trajectory", {"header", "joint_names", "points"});
  yaml.attempt([&] { noteStamp(yaml, fields, batch); });
  yaml.requiredField(fields, node, "joint_names",
                     [&](const YAML::Node& names) { readJointNames(reader, names, batch); });
  yaml.requiredField(fields, node, "points", [&](const YAML::Node& points) {
    if (!batch.actuators.empty()) {
      readPoints(reader, points, batch);
    }
  });
}

}  // namespace host
