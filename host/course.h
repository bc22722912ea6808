#pragma once

#include <cstdint>
#include <vector>

#include "host/plannedlist.h"
#include "host/schedule.h"

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
  /// What is reached, in order; begins with where the actuator stands. Of items
  /// that come too late, the last one.
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

/// The way through these lists, in the order of their hand-overs. Throws
/// `InputError` when more items are due within two cycles than a timeline holds.
Course courseOf(const std::vector<PlannedList>& lists, const simulation::Actuator& actuator,
                const Schedule& schedule);

}  // namespace host
