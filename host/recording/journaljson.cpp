#include "host/recording/journaljson.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "host/base/visible.h"
#include "host/recording/bytes.h"
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
    "lease_ms": {"type": "integer"},
    "on_loss": {"type": "string"},
    "reason": {"type": "string"}
  }
}
)";

namespace {

using Kind = JournalEntry::Kind;

/// Of one message.
constexpr std::size_t mostValues = 4096;

template <typename Value>
struct Named {
  const char* name;
  Value value;
};

constexpr Named<Kind> kinds[] = {
    {"nodes", Kind::nodes}, {"batch", Kind::batch},      {"take", Kind::take},
    {"stop", Kind::stop},   {"moved", Kind::moved},      {"clear", Kind::clear},
    {"freed", Kind::freed}, {"hold", Kind::hold},        {"release", Kind::release},
    {"lost", Kind::lose},   {"registered", Kind::enrol}, {"write", Kind::write},
    {"cycle", Kind::cycle}, {"gap", Kind::gap}};
constexpr Named<Interpolation> interpolations[] = {{"message", Interpolation::message},
                                                   {"linear", Interpolation::linear},
                                                   {"smooth", Interpolation::smooth}};
constexpr Named<TimedCommand::commandType> modes[] = {{"merge", TimedCommand::MERGE},
                                                      {"replace", TimedCommand::REPLACE},
                                                      {"clear_after", TimedCommand::CLEAR_AFTER},
                                                      {"clear_before", TimedCommand::CLEAR_BEFORE}};
constexpr Named<std::uint32_t> stoppers[] = {{"end", Event::byHost},
                                             {"stop", Event::byStop},
                                             {"hold", Event::byHold},
                                             {"commander", Event::byCommander}};
constexpr Named<LossRule> lossRules[] = {{"stop", LossRule::stop}, {"run_out", LossRule::runOut}};
constexpr Named<Fault> losses[] = {
    {"expired", Fault::expired}, {"resigned", Fault::resigned}, {"owned", Fault::owned}};

template <typename Value, std::size_t count>
const char* nameOf(const Named<Value> (&all)[count], Value value) {
  const auto* const found = std::find_if(
      std::begin(all), std::end(all), [&](const Named<Value>& one) { return one.value == value; });
  return found == std::end(all) ? "" : found->name;
}

[[noreturn]] void failEntry(const std::string& what) {
  throw RecordingFault("the journal is not as it should be: " + what);
}

template <typename Value, std::size_t count>
Value valueNamed(const Named<Value> (&all)[count], const std::string& name) {
  const auto* const found = std::find_if(std::begin(all), std::end(all),
                                         [&](const Named<Value>& one) { return name == one.name; });
  if (found == std::end(all)) {
    failEntry("'" + visible(name) + "'");
  }
  return found->value;
}

Json exactly(float number) {
  if (std::isnan(number)) {
    return "nan";
  }
  return std::isinf(number) ? Json(number > 0.0F ? "inf" : "-inf") : Json(number);
}

float floatFrom(const Json& json) {
  constexpr float infinity = std::numeric_limits<float>::infinity();
  if (!json.is_string()) {
    return json.get<float>();
  }
  const auto text = json.get<std::string>();
  return text == "inf" ? infinity
                       : (text == "-inf" ? -infinity : std::numeric_limits<float>::quiet_NaN());
}

bool isReal(const simulation::Actuator& actuator) {
  return valueType(actuator.typeCode) == ValueType::real;
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
  json["interpolation"] = nameOf(interpolations, batch.interpolation);
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
  json["lease_ms"] = enrolment.leaseMs;
  json["on_loss"] = nameOf(lossRules, enrolment.onLoss);
}

std::shared_ptr<const Enrolment> enrolmentFrom(const Json& json, std::vector<int> axes) {
  auto enrolment = std::make_shared<Enrolment>();
  enrolment->name = json.at("name").get<std::string>();
  enrolment->axes = std::move(axes);
  enrolment->priority = json.at("priority").get<int>();
  enrolment->leaseMs = json.at("lease_ms").get<std::int64_t>();
  enrolment->onLoss = valueNamed(lossRules, json.at("on_loss").get<std::string>());
  return enrolment;
}

/// Distinct ones of this machine.
std::vector<int> actuatorsFrom(const Json& json, const MachineModel& machine) {
  std::vector<int> actuators;
  std::vector<bool> isNamed(machine.description.actuators.size(), false);
  for (const Json& one : json) {
    const auto actuator = one.get<std::size_t>();
    if (actuator >= isNamed.size() || isNamed[actuator]) {
      failEntry("an actuator");
    }
    isNamed[actuator] = true;
    actuators.push_back(static_cast<int>(actuator));
  }
  return actuators;
}

void append(const Json& json, std::vector<float>& numbers) {
  for (const Json& number : json) {
    numbers.push_back(floatFrom(number));
  }
}

/// Whether it has what every batch has.
bool isSound(const CommandBatch& commands) {
  const std::size_t values = commands.times.size() * commands.actuators.size();
  const auto fits = [&](const std::vector<float>& numbers) {
    return numbers.empty() || numbers.size() == values;
  };
  return commands.values.size() == values && fits(commands.velocities) &&
         fits(commands.accelerations) &&
         (commands.accelerations.empty() || !commands.velocities.empty()) &&
         std::is_sorted(commands.times.begin(), commands.times.end()) && commands.repeat >= 1 &&
         (commands.repeat == 1 || (!commands.times.empty() && commands.times.back() > 0));
}

}  // namespace

std::vector<Json> journalMessages(const JournalEntry& entry, const MachineModel& machine) {
  if (entry.kind == Kind::batch) {
    return batchMessages(entry, machine);
  }
  Json json = entryJson(nameOf(kinds, entry.kind), entry);
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
      json["by"] = nameOf(stoppers, entry.number);
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

JournalEntry JournalParser::batchFrom(const Json& message) {
  JournalEntry entry{Kind::batch, message.at("at_ms").get<std::int64_t>()};
  commands_ = std::make_shared<CommandBatch>();
  entry.number = message.at("batch").get<std::uint32_t>();
  entry.batch.commands = commands_;
  const auto mode = message.at("mode").get<std::string>();
  commands_->isStop = mode == "stop";
  commands_->mode = commands_->isStop ? TimedCommand::MERGE : valueNamed(modes, mode);
  if (!message.at("moment_ms").is_null()) {
    entry.batch.momentMs = message.at("moment_ms").get<std::int64_t>();
  }
  entry.batch.originMs = message.at("origin_ms").get<std::int64_t>();
  entry.batch.interpolation =
      valueNamed(interpolations, message.at("interpolation").get<std::string>());
  entry.batch.approaches = message.at("approaches").get<bool>();
  commands_->repeat = message.at("repeat").get<std::uint32_t>();
  commands_->actuators = actuatorsFrom(message.at("actuators"), machine_);
  points_ = message.at("points").get<std::size_t>();
  return entry;
}

void JournalParser::takePoints(const Json& message) {
  for (const Json& time : message.at("times")) {
    commands_->times.push_back(time.get<std::uint32_t>());
  }
  const std::size_t columns = commands_->actuators.size();
  for (const Json& value : message.at("values")) {
    if (columns == 0) {
      failEntry("values of no actuator");
    }
    const int actuator = commands_->actuators[commands_->values.size() % columns];
    hal::AttrGeneric& record = commands_->values.emplace_back();
    if (isReal(machine_.actuator(actuator))) {
      record = hal::AttrGeneric(floatFrom(value));
    } else {
      record.asInt = value.get<std::int32_t>();
    }
  }
  append(message.at("velocities"), commands_->velocities);
  append(message.at("accelerations"), commands_->accelerations);
}

std::optional<JournalEntry> JournalParser::take(const Json& message) {
  try {
    const auto kind = message.at("kind").get<std::string>();
    if (kind == "batch") {
      batch_ = batchFrom(message);
    }
    if (kind == "batch" || (kind == "points" && commands_ != nullptr)) {
      takePoints(message);
      if (commands_->times.size() < points_) {
        return std::nullopt;
      }
      if (!isSound(*commands_)) {
        failEntry("a batch");
      }
      commands_ = nullptr;
      return batch_;
    }
    JournalEntry entry{valueNamed(kinds, kind), message.at("at_ms").get<std::int64_t>()};
    if (message.contains("actuators")) {
      entry.actuators = actuatorsFrom(message.at("actuators"), machine_);
    }
    switch (entry.kind) {
      case Kind::nodes:
        entry.numbers = message.at("nodes").get<std::vector<std::size_t>>();
        break;
      case Kind::take:
        entry.number = message.at("batch").get<std::uint32_t>();
        break;
      case Kind::stop:
        entry.number = valueNamed(stoppers, message.at("by").get<std::string>());
        break;
      case Kind::enrol:
        entry.enrolment = enrolmentFrom(message, entry.actuators);
        break;
      case Kind::lose:
        entry.number = message.at("commander").get<std::uint32_t>();
        entry.why = valueNamed(losses, message.at("reason").get<std::string>());
        break;
      case Kind::write:
        entry.bits = message.at("bits").get<std::int32_t>();
        entry.isFoundByCycle = message.at("found_by_cycle").get<bool>();
        break;
      case Kind::cycle:
        entry.timeMs = message.at("machine_ms").get<std::int64_t>();
        break;
      default:
        break;
    }
    return entry;
  } catch (const Json::exception&) {
    failEntry("a field");
  }
}

}  // namespace host
