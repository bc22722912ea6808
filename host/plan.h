#pragma once

#include <string>
#include <vector>

#include "host/course.h"
#include "host/plannedlist.h"
#include "host/schedule.h"

namespace host {

/// What an actuator is commanded, and where that leads.
struct PlannedActuator {
  /// Its index in the machine's description.
  int index = 0;
  /// In the order of the hand-overs.
  std::vector<PlannedList> lists;
  Course course;
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
/// and over thousands of cycles its roundings would add up to some 1e-5. Of very
/// many late items, those that would be passed over in the same cycle are left out.
///
/// The motions must outlive the plan. Throws `InputError`, as `planSchedule` and
/// `courseOf` do, and when two such trajectories move one actuator.
Plan planRun(const MachineFile& machine, const std::vector<Motion>& motions, const Timing& timing);

/// What comes too late for its moment, one list a line: "FILE:LINE:COLUMN:
/// warning: 3 of 8 items late by 40 ms".
std::vector<std::string> lateItems(const std::vector<Motion>& motions);

}  // namespace host
