#include "host/input/jointtrajectory.h"

#include <fmt/format.h>

#include <limits>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/base/counted.h"

namespace host {
namespace {

using Fields = Document::Fields;

/// In place of the actuator of a column that is left out; -1 where the name was reported.
constexpr int leftOut = -2;

/// Of any size: published recordings bear the time of day.
void noteStamp(const Document& document, const Fields& fields, CommandBatch& batch) {
  const auto header = fields.find("header");
  if (header == fields.end() || header->second.isNull()) {
    return;
  }
  const Fields parts = document.fields(header->second, "a header", {"seq", "stamp", "frame_id"});
  const auto stamp = parts.find("stamp");
  if (stamp == parts.end()) {
    return;
  }
  bool isSet = false;
  if (stamp->second.isMap()) {
    const std::set<std::string> known = {"sec", "nanosec", "secs", "nsecs"};
    for (const auto& [key, part] : document.fields(stamp->second, "a time", known)) {
      isSet = document.number(part, key.c_str()) != 0 || isSet;
    }
  } else {
    isSet = document.number(stamp->second, "header.stamp") != 0;
  }
  if (isSet) {
    batch.notes.push_back(fmt::format(
        "{}: the header's stamp is ignored; the motion starts with the run", batch.pointsPath));
  }
}

/// The actuator of each column, or why there is none.
class Columns {
 public:
  Columns(const PointReader& reader, const Node& names, CommandBatch& batch)
      : reader_(reader), batch_(batch) {
    if (!names.isList() || names.size() == 0) {
      reader.document().fail(names, "joint_names: a list of at least one joint is needed");
    }
    for (const Node& node : names.items()) {
      add(node);
    }
    if (batch.actuators.empty()) {
      reader.document().fail(
          names, fmt::format("machine '{}' has none of these joints", reader.machine().name));
    }
    if (!leftOut_.empty()) {
      batch.notes.push_back(fmt::format("{}: left out, since machine '{}' cannot move them: {}",
                                        batch.pointsPath, reader.machine().name,
                                        fmt::join(leftOut_, ", ")));
    }
  }

  [[nodiscard]] std::size_t size() const { return columns_.size(); }
  [[nodiscard]] bool isLeftOut(std::size_t column) const { return columns_[column] == leftOut; }

  /// Adds the position at `node`, of this column, to the row under way.
  void addPosition(std::size_t column, const Node& node) const {
    const int actuator = columns_[column];
    const hal::AttrGeneric value = reader_.value(node, actuator, "a position");
    if (actuator != leftOut) {
      batch_.values.push_back(value);
    }
  }

 private:
  void add(const Node& node) {
    const Document& document = reader_.document();
    const MachineModel& machine = reader_.machine();
    const std::string name = node.isScalar() ? node.scalar() : "";
    const bool isKnown = machine.uncommandedJoints.count(name) != 0;
    int column = reader_.actuatorNamed(name);
    if (!seen_.insert(name).second) {
      document.report(node, fmt::format("joint '{}' is named twice", name));
    } else if (column < 0 && reader_.options().ignoreUnknownJoints && !name.empty()) {
      column = leftOut;
      leftOut_.push_back(name);
    } else if (column < 0) {
      document.report(node,
                      isKnown ? fmt::format("joint '{}' has no actuator: it is fixed or follows "
                                            "another joint",
                                            name)
                              : fmt::format("machine '{}' has no joint '{}'", machine.name, name));
    }
    columns_.push_back(column);
    if (column != leftOut) {
      batch_.actuators.push_back(column);
    }
  }

  const PointReader& reader_;
  CommandBatch& batch_;
  std::vector<int> columns_;
  std::set<std::string> seen_;
  std::vector<std::string> leftOut_;
};

/// A short file may name one row of positions many times.
void checkCount(const Document& document, const Node& points, std::size_t columns) {
  if (points.size() > mostCommands / columns) {
    document.stop(points, fmt::format("{} points for {} joints are more than {} commands",
                                      points.size(), columns, mostCommands));
  }
}

void readPoint(const PointReader& reader, const Node& point, const Fields& fields,
               const Columns& columns, CommandBatch& batch) {
  const Document& document = reader.document();
  document.requiredField(fields, point, "time_from_start",
                         [&](const Node& node) { reader.addTime(node, "time_from_start", batch); });
  batch.locations.push_back(point.location());
  const Node& positions = document.required(fields, point, "positions");
  if (!positions.isList() || positions.size() != columns.size()) {
    document.fail(positions, fmt::format("{} for {}", counted(positions.size(), "position"),
                                         counted(columns.size(), "joint")));
  }
  std::size_t column = 0;
  for (const Node& position : positions.items()) {
    document.attempt([&] { columns.addPosition(column, position); });
    ++column;
  }
}

/// The row of a point in `rows`, which gets rows without numbers for the points before it.
/// False when the point has none.
bool readRow(const PointReader& reader, const Fields& fields, const char* key,
             const Columns& columns, const CommandBatch& batch, std::vector<float>& rows) {
  const auto field = fields.find(key);
  if (field == fields.end() || field->second.size() == 0) {
    return false;
  }
  const Document& document = reader.document();
  const Node& numbers = field->second;
  if (!numbers.isList() || numbers.size() != columns.size()) {
    document.fail(numbers, fmt::format("{}: {} for {}", key, counted(numbers.size(), "number"),
                                       counted(columns.size(), "joint")));
  }
  rows.resize((batch.locations.size() - 1) * batch.actuators.size(),
              std::numeric_limits<float>::quiet_NaN());
  std::size_t column = 0;
  for (const Node& number : numbers.items()) {
    const float single = document.singleNumber(number, key);
    if (!columns.isLeftOut(column++)) {
      rows.push_back(single);
    }
  }
  return true;
}

void readDerivatives(const PointReader& reader, const Fields& fields, const Columns& columns,
                     CommandBatch& batch) {
  const bool hasVelocities =
      readRow(reader, fields, "velocities", columns, batch, batch.velocities);
  if (readRow(reader, fields, "accelerations", columns, batch, batch.accelerations) &&
      !hasVelocities) {
    reader.document().fail(fields.at("accelerations"), "accelerations without velocities");
  }
}

void completeRows(const CommandBatch& batch, std::vector<float>& rows) {
  if (!rows.empty()) {
    rows.resize(batch.values.size(), std::numeric_limits<float>::quiet_NaN());
  }
}

void readPoints(const PointReader& reader, const Node& points, const Columns& columns,
                CommandBatch& batch) {
  static const std::set<std::string> known = {"positions", "velocities", "accelerations",
                                              "effort",    "efforts",    "time_from_start"};
  if (!points.isList() || points.size() == 0) {
    reader.document().fail(points, "points: a list of at least one point is needed");
  }
  checkCount(reader.document(), points, columns.size());
  batch.times.reserve(points.size());
  batch.locations.reserve(points.size());
  static const std::set<std::string> efforts = {"effort", "efforts"};
  std::set<std::string> ignored;
  for (const Node& point : points.items()) {
    reader.document().attempt([&] {
      const Fields fields = reader.document().fields(point, "a point", known);
      for (const auto& [key, node] : fields) {
        if (efforts.count(key) != 0 && node.size() != 0) {
          ignored.insert(key);
        }
      }
      readPoint(reader, point, fields, columns, batch);
      readDerivatives(reader, fields, columns, batch);
    });
  }
  completeRows(batch, batch.velocities);
  completeRows(batch, batch.accelerations);
  for (const std::string& key : ignored) {
    batch.notes.push_back(fmt::format("{}: the key {} is ignored", batch.pointsPath, key));
  }
}

/// All positions in one list, point by point, and the times in another.
void readFlatPoints(const PointReader& reader, const Node& positions, const Node& times,
                    const Columns& columns, CommandBatch& batch) {
  const Document& document = reader.document();
  if (!times.isList() || times.size() == 0) {
    document.fail(times, "times_from_start: a list of at least one time is needed");
  }
  checkCount(document, times, columns.size());
  if (!positions.isList() || positions.size() != times.size() * columns.size()) {
    document.fail(positions,
                  fmt::format("{} for {} at {}", counted(positions.size(), "position"),
                              counted(columns.size(), "joint"), counted(times.size(), "time")));
  }
  for (const Node& time : times.items()) {
    batch.locations.push_back(time.location());
    document.attempt([&] { reader.addTime(time, "time_from_start", batch); });
  }
  std::size_t number = 0;
  for (const Node& position : positions.items()) {
    document.attempt([&] { columns.addPosition(number % columns.size(), position); });
    ++number;
  }
}

}  // namespace

void readJointTrajectory(const PointReader& reader, const Node& node, CommandBatch& batch) {
  const Document& document = reader.document();
  batch.pointsPath = document.pathOf(node);
  const Fields fields =
      document.fields(node, "the trajectory", {"header", "joint_names", "points"});
  document.attempt([&] { noteStamp(document, fields, batch); });
  std::optional<Columns> columns;
  document.requiredField(fields, node, "joint_names",
                         [&](const Node& names) { columns.emplace(reader, names, batch); });
  document.requiredField(fields, node, "points", [&](const Node& points) {
    if (columns) {
      batch.pointsPath = document.pathOf(points);
      readPoints(reader, points, *columns, batch);
    }
  });
}

void readNamedMotion(const PointReader& reader, const Node& node, CommandBatch& batch) {
  const Document& document = reader.document();
  batch.pointsPath = document.pathOf(node);
  const Fields fields = document.fields(
      node, "a named motion", {"joints", "points", "positions", "times_from_start", "meta"});
  std::optional<Columns> columns;
  document.requiredField(fields, node, "joints",
                         [&](const Node& names) { columns.emplace(reader, names, batch); });
  if (!columns) {
    return;
  }
  const auto positions = fields.find("positions");
  if (positions == fields.end()) {
    readPoints(reader, document.required(fields, node, "points"), *columns, batch);
  } else if (fields.count("points") != 0) {
    document.fail(positions->second, "points have positions of their own; keep one of the two");
  } else {
    readFlatPoints(reader, positions->second, document.required(fields, node, "times_from_start"),
                   *columns, batch);
  }
}

}  // namespace host
