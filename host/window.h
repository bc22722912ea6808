#pragma once

#include <cstddef>

#include "timedcommand/timedcommand.h"

namespace host {

/// How many items the host queues ahead, at most, on a timeline.
constexpr std::size_t windowItems = 32;

/// The most items of a list that clears what lies before it: its last item
/// decides, so it is handed over in one push, beside what is queued ahead.
constexpr std::size_t maxClearBeforeItems = TimedCommand::MAX_TIMELINE_ITEMS - windowItems;

}  // namespace host
