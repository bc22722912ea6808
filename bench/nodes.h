#pragma once

#include <cstddef>

#include "timedcommand/timedcommand.h"

namespace bench {

/// Gives the node pool back to the heap, as a new process has it. No list of
/// commands may hold an item.
inline void emptyNodePool() {
  boost::CommandNodePool::purge_memory();
}

/// Has an empty node pool hold so many nodes at least, all free, so that it does not grow
/// while something is measured. Whole blocks are taken, and go back from the highest
/// address to the lowest.
void warmNodePool(std::size_t nodes);

}  // namespace bench
