#pragma once

#include <cstddef>

namespace bench {

/// Gives the node pool back to the heap, as a new process has it. No list of
/// commands may hold an item.
void emptyNodePool();

/// Takes so many nodes, rounded up to whole blocks, and gives them back from
/// the highest address to the lowest, as a host does before its first cycle.
void warmNodePool(std::size_t nodes);

}  // namespace bench
