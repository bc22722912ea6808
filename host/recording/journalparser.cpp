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

/// Of machine time; beyond it there is none that a recording can have.
constexpr std::int64_t mostMs = std::int64_t{1} << 44;

/// A whole number in this range.
template <typename Number>
Number wholeFrom(const Json& json, std::int64_t least = std::numeric_limits<Number>::min(),
                 std::int64_t most = std::numeric_limits<Number>::max()) {
  constexpr std::uint64_t mostSigned = std::numeric_limits<std::int64_t>::max();
  const bool isWhole = json.is_number_unsigned() ? json.get<std::uint64_t>() <= mostSigned
                                                 : json.is_number_integer();
  const std::int64_t number = isWhole ? json.get<std::int64_t>() : 0;
  if (!isWhole || number < least || number > most) {
    journal::fail("a number");
  }
  return static_cast<Number>(number);
}

std::int64_t timeFrom(const Json& json) {
  return wholeFrom<std::int64_t>(json, -mostMs, mostMs);
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

std::shared_ptr<const Enrolment> enrolmentFrom(const Json& json, std::vector<int> axes) {
  auto enrolment = std::make_shared<Enrolment>();
  enrolment->name = json.at("name").get<std::string>();
  enrolment->axes = std::move(axes);
  enrolment->priority = wholeFrom<int>(json.at("priority"));
  enrolment->leaseMs.reset();
  if (!json.at("lease_ms").is_null()) {
    enrolment->leaseMs = wholeFrom<std::int64_t>(json.at("lease_ms"), 0, mostMs);
  }
  enrolment->onLoss = valueNamed(lossRuleWords, json.at("on_loss").get<std::string>());
  return enrolment;
}

/// Distinct ones of this machine.
std::vector<int> actuatorsFrom(const Json& json, const MachineModel& machine) {
  std::vector<int> actuators;
  std::vector<bool> isNamed(machine.description.actuators.size(), false);
  for (const Json& one : json) {
    const auto actuator = wholeFrom<std::uint32_t>(one);
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
  JournalEntry entry{valueNamed(journal::kinds, kind), timeFrom(message.at("at_ms"))};
  if (message.contains("actuators")) {
    entry.actuators = actuatorsFrom(message.at("actuators"), machine);
  }
  switch (entry.kind) {
    case Kind::nodes:
      for (const Json& count : message.at("nodes")) {
        entry.numbers.push_back(wholeFrom<std::uint32_t>(count));
      }
      break;
    case Kind::take:
      entry.number = wholeFrom<std::uint32_t>(message.at("batch"));
      break;
    case Kind::stop:
      entry.number = valueNamed(journal::stoppers, message.at("by").get<std::string>());
      break;
    case Kind::enrol:
      entry.enrolment = enrolmentFrom(message, entry.actuators);
      break;
    case Kind::lose:
      entry.number = wholeFrom<std::uint32_t>(message.at("commander"));
      entry.why = valueNamed(journal::losses, message.at("reason").get<std::string>());
      break;
    case Kind::write:
      entry.bits = wholeFrom<std::int32_t>(message.at("bits"));
      entry.isFoundByCycle = message.at("found_by_cycle").get<bool>();
      break;
    case Kind::cycle:
      entry.timeMs = timeFrom(message.at("machine_ms"));
      break;
    default:
      break;
  }
  return entry;
}

}  // namespace

JournalEntry JournalParser::batchFrom(const Json& message) {
  JournalEntry entry{Kind::batch, timeFrom(message.at("at_ms"))};
  const auto commands = std::make_shared<CommandBatch>();
  entry.number = wholeFrom<std::uint32_t>(message.at("batch"));
  entry.batch.commands = commands;
  const auto mode = message.at("mode").get<std::string>();
  commands->isStop = mode == "stop";
  commands->mode = commands->isStop ? TimedCommand::MERGE : valueNamed(modeWords, mode);
  if (!message.at("moment_ms").is_null()) {
    entry.batch.momentMs = timeFrom(message.at("moment_ms"));
  }
  entry.batch.originMs = timeFrom(message.at("origin_ms"));
  entry.batch.interpolation =
      valueNamed(interpolationWords, message.at("interpolation").get<std::string>());
  entry.batch.approaches = message.at("approaches").get<bool>();
  commands->repeat = wholeFrom<std::uint32_t>(message.at("repeat"));
  commands->actuators = actuatorsFrom(message.at("actuators"), machine_);
  points_ = wholeFrom<std::uint32_t>(message.at("points"));
  checkOrder(entry);
  commands_ = commands;
  return entry;
}

void JournalParser::takePoints(const Json& message) {
  for (const Json& time : message.at("times")) {
    commands_->times.push_back(wholeFrom<std::uint32_t>(time));
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
      record.asInt = wholeFrom<std::int32_t>(value);
    }
  }
  append(message.at("velocities"), commands_->velocities);
  append(message.at("accelerations"), commands_->accelerations);
}

/// Points are taken of the latest batch, by those that it names, in its order, and not before it
/// came.
void JournalParser::checkOrder(const JournalEntry& entry) {
  if (entry.atMs < latestMs_) {
    journal::fail("the order of its entries");
  }
  latestMs_ = entry.atMs;
  if (entry.kind == Kind::batch) {
    return;
  }
  if (batch_.batch.commands == nullptr || commands_ != nullptr || entry.number != batch_.number) {
    journal::fail("points of a batch that did not come");
  }
  const std::vector<int>& named = batch_.batch.commands->actuators;
  auto next = named.begin();
  for (const int actuator : entry.actuators) {
    next = std::find(next, named.end(), actuator);
    if (next == named.end()) {
      journal::fail("an actuator takes what it was not sent");
    }
  }
}

std::optional<JournalEntry> JournalParser::take(const Json& message) {
  try {
    const auto kind = message.at("kind").get<std::string>();
    if (kind == "batch") {
      commands_ = nullptr;
      batch_ = {};
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
    JournalEntry entry = entryFrom(message, kind, machine_);
    if (entry.kind == Kind::take) {
      checkOrder(entry);
    }
    return entry;
  } catch (const Json::exception&) {
    journal::fail("a field");
  }
}

}  // namespace host
