#pragma once

#include <cstdint>
#include <limits>
#include <vector>

#include "host/input/motion.h"

namespace host {

/// One command of a plan; times are milliseconds after the first cycle.
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

}  // namespace host
