#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "host/schedule.h"

namespace host {

/// One command of the plan; times are milliseconds after the first cycle.
struct PlannedItem {
  static constexpr std::uint32_t ownPoint = std::numeric_limits<std::uint32_t>::max();

  std::int64_t timeMs = 0;
  hal::AttrGeneric value;
  /// The point of the motion that asks for it; `ownPoint` for what the host adds.
  std::uint32_t point = ownPoint;
};

/// What one motion commands of one actuator.
struct PlannedList {
  const Motion* motion = nullptr;
  std::int64_t handOverMs = 0;
  TimedCommand::commandType mode = TimedCommand::MERGE;
  std::vector<PlannedItem> items;
};

/// What an actuator is commanded, in the order of the hand-overs.
struct PlannedActuator {
  /// Its index in the machine's description.
  int index = 0;
  std::vector<PlannedList> lists;
};

struct Plan {
  Schedule schedule;
  /// Those that a motion names, in the order of the machine.
  std::vector<PlannedActuator> actuators;
};

/// Lays motions out in time, for a machine that stands as described.
///
/// A trajectory that is a file of its own begins with an item at the first cycle
/// that holds the actuator where it stands, and its first point lies within the
/// limits. Where no other list interferes, long ways are cut into parts on the
/// straight line: the library goes on from what it wrote, in single precision,
/// and over thousands of cycles its roundings would add up to some 1e-5.
///
/// The motions must outlive the plan. Throws `InputError`, as `planSchedule`
/// does and when two such trajectories move one actuator.
Plan planRun(const MachineFile& machine, const std::vector<Motion>& motions, const Timing& timing);

/// What comes too late for its moment, one list a line: "FILE:LINE:COLUMN:
/// warning: 3 of 8 items late by 40 ms".
std::vector<std::string> lateItems(const std::vector<Motion>& motions);

}  // namespace host
