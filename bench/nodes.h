#pragma once

#include "timedcommand/timedcommand.h"

namespace bench {

/// Gives the node pool back to the heap, as a new process has it. No list of
/// commands may hold an item.
inline void emptyNodePool() {
  boost::CommandNodePool::purge_memory();
}

}  // namespace bench
