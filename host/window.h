#pragma once

#include <cstddef>

#include "timedcommand/timedcommand.h"

namespace host {

/// How many items the host queues ahead on a timeline: so many, and whatever is
/// due within so many cycles.
constexpr std::size_t windowItems = 32;
constexpr int windowCycles = 2;

/// The most items that may be due within the cycles of the window.
constexpr std::size_t mostItemsInWindow = 256;

/// How many items of a list are handed over although they are late, the latest
/// ones: the actuator takes the last of them.
constexpr std::size_t mostLateItems = 128;

/// The most items of a list that clears what lies before it: its last item
/// decides, so it is handed over in one push, beside what is queued ahead.
constexpr std::size_t maxClearBeforeItems = TimedCommand::MAX_TIMELINE_ITEMS - windowItems;

static_assert(windowItems + mostItemsInWindow + mostLateItems < TimedCommand::MAX_TIMELINE_ITEMS);

}  // namespace host
