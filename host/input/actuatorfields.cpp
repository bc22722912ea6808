#include "host/input/actuatorfields.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <string>

namespace host {
namespace {

/// Floats are compared as they are kept: 0.7 lies above 0.7 in single precision. Integers are
/// compared with limits as they stand.
double kept(const simulation::Actuator& actuator, double number) {
  return actuator.typeCode == hal::floatTypeCode ? double{static_cast<float>(number)} : number;
}

std::string shown(const simulation::Actuator& actuator, double number) {
  return actuator.typeCode == hal::floatTypeCode ? fmt::format("{}", static_cast<float>(number))
                                                 : fmt::format("{}", number);
}

/// In words for a user.
std::string nameOf(const simulation::Actuator& actuator) {
  return actuator.name.empty() ? "an actuator without a name" : "'" + actuator.name + "'";
}

/// Of two that contradict each other, that of a later file than the actuator's.
const FileLocation& whereToCorrect(const ActuatorFields& fields) {
  const FileLocation& maximum = fields.maximum->location;
  const FileLocation& minimum = fields.minimum->location;
  return minimum.path == fields.location.path && maximum.path != minimum.path ? maximum : minimum;
}

void setRange(const ActuatorFields& fields, simulation::Actuator& actuator) {
  if (fields.minimum) {
    actuator.minimum = kept(actuator, fields.minimum->number);
  }
  if (fields.maximum) {
    actuator.maximum = kept(actuator, fields.maximum->number);
  }
  if (actuator.minimum > actuator.maximum) {
    throw UserError(
        whereToCorrect(fields),
        fmt::format("minimum {} of {} lies above maximum {}", shown(actuator, actuator.minimum),
                    nameOf(actuator), shown(actuator, actuator.maximum)));
  }
}

void setMaximumVelocity(const ActuatorFields& fields, simulation::Actuator& actuator) {
  if (!fields.maximumVelocity) {
    return;
  }
  actuator.maximumVelocity = static_cast<float>(fields.maximumVelocity->number);
  if (actuator.maximumVelocity < 0) {
    throw UserError(fields.maximumVelocity->location,
                    fmt::format("the maximum velocity of {} is negative", nameOf(actuator)));
  }
}

void setValue(const ActuatorFields& fields, simulation::Actuator& actuator) {
  const bool isFloat = actuator.typeCode == hal::floatTypeCode;
  double value = std::clamp(0.0, actuator.minimum, actuator.maximum);
  if (fields.value) {
    value = kept(actuator, fields.value->number);
    if (value < actuator.minimum || value > actuator.maximum) {
      throw UserError(
          fields.value->location,
          fmt::format("the value {} of {} lies outside its limits {} to {}", shown(actuator, value),
                      nameOf(actuator), shown(actuator, actuator.minimum),
                      shown(actuator, actuator.maximum)));
    }
  } else if (!isFloat && value != 0.0) {
    throw UserError(fields.location, "the key 'value' is missing: 0 lies outside the limits");
  }
  if (isFloat) {
    actuator.value = static_cast<float>(value);
  } else if (!std::isnan(value)) {
    actuator.value = static_cast<std::int32_t>(value);
  }
}

}  // namespace

void settle(const ActuatorFields& fields, simulation::Actuator& actuator, ErrorCollector& errors) {
  const bool lacks = std::any_of(std::begin(limitFields), std::end(limitFields),
                                 [&](const LimitField& field) { return !(fields.*field.given); });
  if (fields.lacking && lacks) {
    errors.add(*fields.lacking);
  }
  errors.attempt([&] { setMaximumVelocity(fields, actuator); });
  errors.attempt([&] {
    setRange(fields, actuator);
    setValue(fields, actuator);
  });
}

}  // namespace host
