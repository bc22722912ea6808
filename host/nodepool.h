#pragma once

#include <cstddef>

namespace host {

/// Has the node pool of the process hold so many nodes, all free. Before the
/// first cycle, while no list of commands holds an item: growing later would put
/// new nodes below old ones, and every node that a cycle returns would then be
/// searched for among them. For the same reason whole blocks are taken, and go
/// back from the highest address to the lowest.
void warmNodePool(std::size_t nodes);

}  // namespace host
