#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "host/plan.h"

namespace host {

/// Where an actuator is told to be at a moment, in milliseconds after the first
/// cycle.
struct CoursePoint {
  std::int64_t timeMs = 0;
  double value = 0.0;
  /// Which point of which motion asks for it; null for where the actuator stands
  /// when a list is handed over, and for what the host adds.
  const Motion* motion = nullptr;
  std::uint32_t point = PlannedItem::ownPoint;
};

/// The way of one actuator through all lists, as far as it can be told ahead.
struct Course {
  /// What is reached, in order; begins with where the actuator stands.
  std::vector<CoursePoint> path;
  /// Commanded points that a later list clears before they are due.
  std::vector<CoursePoint> cleared;
  /// The last list stops the actuator on its way: where cannot be told exactly.
  bool stopsOnTheWay = false;
};

/// The number that a command for this actuator means.
double commandedNumber(const simulation::Actuator& actuator, const hal::AttrGeneric& value);
/// The number that the actuator holds before it moves.
double initialNumber(const simulation::Actuator& actuator);

Course courseOf(const PlannedActuator& planned, const simulation::Actuator& actuator,
                const Schedule& schedule);

}  // namespace host
