#include "host/input/pointreader.h"

#include <fmt/format.h>

#include "host/base/attributekey.h"
#include "host/input/typedvalue.h"

namespace host {

ActuatorNames::ActuatorNames(const MachineModel& machine)
    : machine_(machine), actuators_(actuatorIndexes(machine)) {
  for (const auto& [name, index] : actuators_) {
    keys_.emplace(valueKey(machine.actuator(index)), index);
  }
}

int ActuatorNames::named(const std::string& name) const {
  const auto found = actuators_.find(name);
  return found == actuators_.end() ? -1 : found->second;
}

int ActuatorNames::withKey(const std::string& key) const {
  const auto found = keys_.find(fullKey(key));
  return found == keys_.end() ? -1 : found->second;
}

int ActuatorNames::find(const std::string& nameOrKey) const {
  const int byName = named(nameOrKey);
  return byName < 0 ? withKey(nameOrKey) : byName;
}

hal::AttrGeneric PointReader::value(const Node& node, int actuator, const char* what) const {
  if (actuator < 0) {
    return hal::AttrGeneric(document_.singleNumber(node, what));
  }
  const simulation::Actuator& commanded = machine().actuator(actuator);
  if (commanded.typeCode == hal::floatTypeCode) {
    return hal::AttrGeneric(document_.singleNumber(node, what));
  }
  hal::AttrGeneric record;
  record.asInt = readInteger(document_, node, what);
  return record;
}

void PointReader::addTime(const Node& node, const char* what, CommandBatch& batch) const {
  const std::uint32_t timeMs = document_.milliseconds(node, what);
  if (std::int64_t{batch.fromMs} + timeMs > Document::longestMs) {
    document_.fail(node, fmt::format("{} is more than {} seconds after the start", what,
                                     Document::longestMs / 1000));
  }
  if (!batch.times.empty() && timeMs == batch.times.back()) {
    document_.report(node,
                     fmt::format("two points have the same time after rounding: {} ms", timeMs));
  }
  if (!batch.times.empty() && timeMs < batch.times.back()) {
    document_.report(node, fmt::format("{} decreases from {} ms to {} ms; times must rise", what,
                                       batch.times.back(), timeMs));
  }
  batch.times.push_back(timeMs);
}

}  // namespace host
