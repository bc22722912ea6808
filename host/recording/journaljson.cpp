#include "host/recording/journaljson.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/recording/journalwords.h"
#include "host/results/eventjson.h"

namespace host {

const char* const journalSchema = R"({
  "$schema": "https://json-schema.org/draft/2020-12/schema",
  "title": "torvex.Journal",
  "type": "object",
  "required": ["kind", "at_ms", "number"],
  "properties": {
    "kind": {"type": "string"},
    "at_ms": {"type": "integer"},
    "number": {"type": "integer"},
    "actuators": {"type": "array", "items": {"type": "integer"}},
    "nodes": {"type": "array", "items": {"type": "integer"}},
    "machine_ms": {"type": "integer"},
    "bits": {"type": "integer"},
    "found_by_cycle": {"type": "boolean"},
    "by": {"type": "string"},
    "batch": {"type": "integer"},
    "mode": {"type": "string"},
    "moment_ms": {"type": ["integer", "null"]},
    "origin_ms": {"type": "integer"},
    "interpolation": {"type": "string"},
    "approaches": {"type": "boolean"},
    "repeat": {"type": "integer"},
    "points": {"type": "integer"},
    "times": {"type": "array", "items": {"type": "integer"}},
    "values": {"type": "array", "items": {"type": ["number", "string"]}},
    "velocities": {"type": "array", "items": {"type": ["number", "string"]}},
    "accelerations": {"type": "array", "items": {"type": ["number", "string"]}},
    "commander": {"type": "integer"},
    "name": {"type": "string"},
    "priority": {"type": "integer"},
    "lease_ms": {"type": ["integer", "null"]},
    "on_loss": {"type": "string"},
    "reason": {"type": "string"}
  }
}
)";

namespace {

using journal::isReal;
using journal::Kind;

/// Of one message.
constexpr std::size_t mostValues = 4096;

Json exactly(float number) {
  if (std::isnan(number)) {
    return "nan";
  }
  return std::isinf(number) ? Json(number > 0.0F ? "inf" : "-inf") : Json(number);
}

/// The points from `first` to before `end`.
void addPoints(const CommandBatch& commands, const MachineModel& machine, std::size_t first,
               std::size_t end, Json& json) {
  const std::size_t columns = commands.actuators.size();
  json["times"] =
      std::vector<std::uint32_t>(commands.times.begin() + static_cast<std::ptrdiff_t>(first),
                                 commands.times.begin() + static_cast<std::ptrdiff_t>(end));
  Json values = Json::array();
  Json velocities = Json::array();
  Json accelerations = Json::array();
  for (std::size_t i = first * columns; i < end * columns; ++i) {
    const hal::AttrGeneric& value = commands.values[i];
    values.push_back(isReal(machine.actuator(commands.actuators[i % columns]))
                         ? exactly(value.asFloat)
                         : Json(value.asInt));
    if (!commands.velocities.empty()) {
      velocities.push_back(exactly(commands.velocities[i]));
    }
    if (!commands.accelerations.empty()) {
      accelerations.push_back(exactly(commands.accelerations[i]));
    }
  }
  json["values"] = std::move(values);
  json["velocities"] = std::move(velocities);
  json["accelerations"] = std::move(accelerations);
}

Json entryJson(const char* kind, const JournalEntry& entry) {
  return {{"kind", kind}, {"at_ms", entry.atMs}};
}

void addHead(const JournalEntry& entry, Json& json) {
  const ScheduledBatch& batch = entry.batch;
  const CommandBatch& commands = *batch.commands;
  json["mode"] = modeName(commands);
  json["moment_ms"] = batch.momentMs ? Json(*batch.momentMs) : Json();
  json["origin_ms"] = batch.originMs;
  json["interpolation"] = wordFor(interpolationWords, batch.interpolation);
  json["approaches"] = batch.approaches;
  json["repeat"] = commands.repeat;
  json["actuators"] = commands.actuators;
  json["points"] = commands.times.size();
}

std::vector<Json> batchMessages(const JournalEntry& entry, const MachineModel& machine) {
  const CommandBatch& commands = *entry.batch.commands;
  const std::size_t points = commands.times.size();
  const std::size_t most =
      std::max<std::size_t>(mostValues / std::max<std::size_t>(commands.actuators.size(), 1), 1);
  std::vector<Json> messages;
  for (std::size_t first = 0; first < points || messages.empty(); first += most) {
    const bool isFirst = messages.empty();
    Json& json = messages.emplace_back(entryJson(isFirst ? "batch" : "points", entry));
    json["batch"] = entry.number;
    if (isFirst) {
      addHead(entry, json);
    }
    addPoints(commands, machine, first, std::min(first + most, points), json);
  }
  return messages;
}

void addEnrolment(const Enrolment& enrolment, Json& json) {
  json["name"] = enrolment.name;
  json["actuators"] = enrolment.axes;
  json["priority"] = enrolment.priority;
  json["lease_ms"] = enrolment.leaseMs ? Json(*enrolment.leaseMs) : Json();
  json["on_loss"] = wordFor(lossRuleWords, enrolment.onLoss);
}

}  // namespace

std::vector<Json> journalMessages(const JournalEntry& entry, const MachineModel& machine) {
  if (entry.kind == Kind::batch) {
    return batchMessages(entry, machine);
  }
  Json json = entryJson(wordFor(journal::kinds, entry.kind), entry);
  if (!entry.actuators.empty()) {
    json["actuators"] = entry.actuators;
  }
  switch (entry.kind) {
    case Kind::nodes:
      json["nodes"] = entry.numbers;
      break;
    case Kind::take:
      json["batch"] = entry.number;
      break;
    case Kind::stop:
      json["by"] = wordFor(journal::stoppers, entry.number);
      break;
    case Kind::enrol:
      addEnrolment(*entry.enrolment, json);
      break;
    case Kind::lose:
      json["commander"] = entry.number;
      json["reason"] = reasonName(entry.why);
      break;
    case Kind::write:
      json["bits"] = entry.bits;
      json["found_by_cycle"] = entry.isFoundByCycle;
      break;
    case Kind::cycle:
      json["machine_ms"] = entry.timeMs;
      break;
    default:
      break;
  }
  return {std::move(json)};
}

}  // namespace host
