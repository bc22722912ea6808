#include "host/recording/recordingtopics.h"

#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/base/textfile.h"
#include "host/base/visible.h"
#include "host/engine/samplehistory.h"
#include "host/input/urdf.h"
#include "host/recording/journaljson.h"
#include "host/results/eventjson.h"

namespace host {
namespace {

constexpr char eventSchema[] = R"({
  "$schema": "https://json-schema.org/draft/2020-12/schema",
  "title": "torvex.Event",
  "type": "object",
  "required": ["number", "kind", "machine_ms"],
  "properties": {
    "number": {"type": "integer"},
    "kind": {"type": "string"},
    "machine_ms": {"type": "integer"},
    "batch": {"type": "integer"},
    "commander": {"type": "integer"},
    "key": {"type": "string"},
    "point": {"type": "integer"},
    "follower": {"type": "string"},
    "count": {"type": "integer"},
    "rounds": {"type": "integer"},
    "by": {"type": "string"},
    "by_batch": {"type": "integer"},
    "ended": {"type": "boolean"},
    "reason": {"type": "string"},
    "amount": {"type": ["number", "null"]},
    "points": {
      "type": "array",
      "items": {
        "type": "object",
        "properties": {"machine_ms": {"type": "integer"}, "value": {"type": ["number", "null"]}}
      }
    }
  }
}
)";

constexpr char attributeSchema[] = R"({
  "$schema": "https://json-schema.org/draft/2020-12/schema",
  "title": "torvex.Attributes",
  "type": "object",
  "additionalProperties": {"type": ["number", "null"]}
}
)";

bool isXml(const std::string& text) {
  return text.find_first_not_of(" \t\r\n") == text.find('<') && !text.empty();
}

Json pointsJson(const std::vector<Point>& points, const simulation::Actuator& actuator) {
  const bool isFloat = valueType(actuator.typeCode) == ValueType::real;
  Json json = Json::array();
  for (const Point& point : points) {
    json.push_back({{"machine_ms", point.timeMs},
                    {"value", isFloat ? Json(point.value.asFloat) : Json(point.value.asInt)}});
  }
  return json;
}

bool isSame(const std::vector<double>& one, const std::vector<double>& other) {
  return one.size() == other.size() &&
         std::memcmp(one.data(), other.data(), one.size() * sizeof(double)) == 0;
}

}  // namespace

std::vector<McapAttachment> filesOf(const MachineModel& machine) {
  std::vector<McapAttachment> files;
  for (const std::string& path : machine.paths) {
    McapAttachment& file = files.emplace_back();
    file.name = visible(std::filesystem::path(path).filename().string());
    file.data = readFile(path, maxUrdfBytes);
    file.mediaType = isXml(file.data) ? "application/xml" : "application/yaml";
  }
  return files;
}

RecordingTopics::RecordingTopics(McapWriter::Write write, const RecordingHead& head,
                                 const MachineModel& machine,
                                 const std::vector<McapAttachment>& files)
    : head_(head), machine_(machine), writer_(std::move(write), "torvex " TORVEX_VERSION) {
  writer_.addMetadata(head.metadata());
  for (McapAttachment file : files) {
    file.logTime = head.originNs;
    writer_.addAttachment(file);
  }
  const std::uint16_t jointState =
      writer_.addSchema(JointState::schemaName, "ros2msg", JointState::schema());
  joints_.push_back(joints(jointState, commandTopic, true));
  joints_.push_back(joints(jointState, measuredTopic, false));
  const std::string name = visible(head.machine);
  events_ = writer_.addChannel(writer_.addSchema("torvex.Event", "jsonschema", eventSchema),
                               name + eventTopic, "json");
  if (!head.attributes.empty()) {
    attributes_ =
        writer_.addChannel(writer_.addSchema("torvex.Attributes", "jsonschema", attributeSchema),
                           name + attributeTopic, "json");
  }
  if (head.journal) {
    journal_ = writer_.addChannel(writer_.addSchema("torvex.Journal", "jsonschema", journalSchema),
                                  name + journalTopic, "json");
  }
}

RecordingTopics::Joints RecordingTopics::joints(std::uint16_t schema, const char* topic,
                                                bool isCommand) {
  std::vector<std::size_t> positions;
  std::vector<std::string> names;
  for (std::size_t i = 0; i < head_.columns.size(); ++i) {
    if (isCommandColumn(head_.columns[i]) == isCommand) {
      positions.push_back(rowTimes + i);
      names.push_back(visible(nameOfColumn(head_.columns[i])));
    }
  }
  return {writer_.addChannel(schema, visible(head_.machine) + topic, "cdr"), positions,
          JointStateEncoder(names), std::vector<double>(positions.size())};
}

void RecordingTopics::addRow(const std::vector<double>& row) {
  const std::uint64_t timeNs = head_.timeNs(static_cast<std::int64_t>(row[0]));
  for (Joints& joints : joints_) {
    for (std::size_t i = 0; i < joints.positions.size(); ++i) {
      joints.values[i] = row[joints.positions[i]];
    }
    writer_.addMessage(joints.channel, timeNs, joints.encoder.encoded(timeNs, joints.values),
                       &joints != &joints_.front());
  }
  if (attributes_ != 0) {
    addAttributes(row, timeNs);
  }
}

void RecordingTopics::addAttributes(const std::vector<double>& row, std::uint64_t timeNs) {
  const std::size_t begin = rowTimes + head_.columns.size();
  std::vector<double> values(row.begin() + static_cast<std::ptrdiff_t>(begin), row.end());
  if (isSame(values, lastAttributes_)) {
    return;
  }
  Json json = Json::object();
  for (std::size_t i = 0; i < values.size(); ++i) {
    json[head_.attributes[i]] = numberJson(values[i]);
  }
  writer_.addMessage(attributes_, timeNs, printed(json, -1), true);
  lastAttributes_ = std::move(values);
}

void RecordingTopics::addEvent(const Event& event, const std::vector<Point>& points) {
  Json json = eventJson(event, {eventCount_++, {}, {}}, machine_);
  if (event.kind == EventKind::cleared && event.byBatch == Event::byHost) {
    json["ended"] = true;
  }
  if (!points.empty()) {
    json["points"] = pointsJson(points, machine_.actuator(event.actuator));
  }
  add(events_, head_.timeNs(event.timeMs), printed(json, -1));
}

void RecordingTopics::addJournal(const JournalEntry& entry) {
  for (Json& message : journalMessages(entry, machine_)) {
    message["number"] = entryCount_++;
    add(journal_, head_.timeNs(entry.atMs), printed(message, -1));
  }
}

void RecordingTopics::addDropped(const char* kind, std::int64_t machineMs, std::uint64_t count,
                                 std::uint64_t number) {
  const Json json = {
      {"number", number}, {"kind", kind}, {"machine_ms", machineMs}, {"count", count}};
  add(events_, head_.timeNs(machineMs), printed(json, -1));
}

void RecordingTopics::add(std::uint16_t channel, std::uint64_t timeNs, std::string_view data) {
  keep_ ? keep_(channel, timeNs, data) : writer_.addMessage(channel, timeNs, data);
}

}  // namespace host
