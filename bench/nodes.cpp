#include "bench/nodes.h"

#include <algorithm>
#include <functional>
#include <vector>

#include "host/engine/nodereserve.h"

namespace bench {

void warmNodePool(std::size_t nodes) {
  CommandList taken;
  std::vector<CommandList::iterator> falling;
  for (std::size_t left = host::inWholeBlocks(nodes); left > 0; --left) {
    falling.push_back(taken.emplace(taken.end()));
  }
  std::sort(falling.begin(), falling.end(),
            [](auto one, auto other) { return std::less<>()(&*other, &*one); });
  for (const auto node : falling) {
    taken.erase(node);
  }
}

}  // namespace bench
