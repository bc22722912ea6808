#include "host/recording/journalparser.h"

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "host/recording/journalwords.h"

namespace host {
namespace {

using journal::Kind;
using journal::valueNamed;

float floatFrom(const Json& json) {
  constexpr float infinity = std::numeric_limits<float>::infinity();
  if (!json.is_string()) {
    return json.get<float>();
  }
  const auto text = json.get<std::string>();
  return text == "inf" ? infinity
                       : (text == "-inf" ? -infinity : std::numeric_limits<float>::quiet_NaN());
}

std::shared_ptr<const Enrolment> enrolmentFrom(const Json& json, std::vector<int> axes) {
  auto enrolment = std::make_shared<Enrolment>();
  enrolment->name = json.at("name").get<std::string>();
  enrolment->axes = std::move(axes);
  enrolment->priority = json.at("priority").get<int>();
  enrolment->leaseMs.reset();
  if (!json.at("lease_ms").is_null()) {
    enrolment->leaseMs = json.at("lease_ms").get<std::int64_t>();
  }
  enrolment->onLoss = valueNamed(journal::lossRules, json.at("on_loss").get<std::string>());
  return enrolment;
}

/// Distinct ones of this machine.
std::vector<int> actuatorsFrom(const Json& json, const MachineModel& machine) {
  std::vector<int> actuators;
  std::vector<bool> isNamed(machine.description.actuators.size(), false);
  for (const Json& one : json) {
    const auto actuator = one.get<std::size_t>();
    if (actuator >= isNamed.size() || isNamed[actuator]) {
      journal::fail("an actuator");
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

JournalEntry entryFrom(const Json& message, const std::string& kind, const MachineModel& machine) {
  JournalEntry entry{valueNamed(journal::kinds, kind), message.at("at_ms").get<std::int64_t>()};
  if (message.contains("actuators")) {
    entry.actuators = actuatorsFrom(message.at("actuators"), machine);
  }
  switch (entry.kind) {
    case Kind::nodes:
      entry.numbers = message.at("nodes").get<std::vector<std::size_t>>();
      break;
    case Kind::take:
      entry.number = message.at("batch").get<std::uint32_t>();
      break;
    case Kind::stop:
      entry.number = valueNamed(journal::stoppers, message.at("by").get<std::string>());
      break;
    case Kind::enrol:
      entry.enrolment = enrolmentFrom(message, entry.actuators);
      break;
    case Kind::lose:
      entry.number = message.at("commander").get<std::uint32_t>();
      entry.why = valueNamed(journal::losses, message.at("reason").get<std::string>());
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
}

}  // namespace

JournalEntry JournalParser::batchFrom(const Json& message) {
  JournalEntry entry{Kind::batch, message.at("at_ms").get<std::int64_t>()};
  commands_ = std::make_shared<CommandBatch>();
  entry.number = message.at("batch").get<std::uint32_t>();
  entry.batch.commands = commands_;
  const auto mode = message.at("mode").get<std::string>();
  commands_->isStop = mode == "stop";
  commands_->mode = commands_->isStop ? TimedCommand::MERGE : valueNamed(journal::modes, mode);
  if (!message.at("moment_ms").is_null()) {
    entry.batch.momentMs = message.at("moment_ms").get<std::int64_t>();
  }
  entry.batch.originMs = message.at("origin_ms").get<std::int64_t>();
  entry.batch.interpolation =
      valueNamed(journal::interpolations, message.at("interpolation").get<std::string>());
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
      journal::fail("values of no actuator");
    }
    const int actuator = commands_->actuators[commands_->values.size() % columns];
    hal::AttrGeneric& record = commands_->values.emplace_back();
    if (journal::isReal(machine_.actuator(actuator))) {
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
        journal::fail("a batch");
      }
      commands_ = nullptr;
      return batch_;
    }
    return entryFrom(message, kind, machine_);
  } catch (const Json::exception&) {
    journal::fail("a field");
  }
}

}  // namespace host
