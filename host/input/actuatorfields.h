#pragma once

#include <limits>
#include <optional>

#include "host/base/errorcollector.h"
#include "simulation/machine.h"

namespace host {

/// A number that a file gives, and where. One that could not be read, which was reported, is
/// NaN: it contradicts nothing.
struct GivenNumber {
  FileLocation location;
  double number = std::numeric_limits<double>::quiet_NaN();
};

/// What files say of an actuator's limits and of where it stands at the start.
struct ActuatorFields {
  /// Of the actuator.
  FileLocation location;
  std::optional<GivenNumber> minimum;
  std::optional<GivenNumber> maximum;
  std::optional<GivenNumber> maximumVelocity;
  std::optional<GivenNumber> value;
  /// Units a second.
  std::optional<double> approachVelocity;
  /// Units a second squared.
  std::optional<double> maximumAcceleration;
  /// At most this, where nothing is given: many a URDF holds nonsense for a limit.
  double usualApproachVelocity = std::numeric_limits<double>::infinity();
  /// What is wrong unless all limits are given in the end.
  std::optional<UserError> lacking;
};

struct LimitField {
  /// In a machine file.
  const char* key;
  /// Of a URDF's <limit>.
  const char* attribute;
  std::optional<GivenNumber> ActuatorFields::*given;
};

/// The table of all limits.
constexpr LimitField limitFields[] = {
    {"minimum", "lower", &ActuatorFields::minimum},
    {"maximum", "upper", &ActuatorFields::maximum},
    {"maximum_velocity", "velocity", &ActuatorFields::maximumVelocity},
};

/// Gives an actuator of a known type its limits and its value: without one, it stands as near
/// to 0 as the limits allow. What contradicts itself is reported where it was given.
void settle(const ActuatorFields& fields, simulation::Actuator& actuator, ErrorCollector& errors);

}  // namespace host
