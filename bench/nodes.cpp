#include "bench/nodes.h"

#include <algorithm>
#include <functional>
#include <vector>

namespace bench {

namespace {

/// Each block that the pool takes from the heap is twice as long as the one before.
std::size_t inWholeBlocks(std::size_t nodes) {
  std::size_t total = 0;
  for (std::size_t block = 32; total < nodes; block *= 2) {
    total += block;
  }
  return total;
}

}  // namespace

void warmNodePool(std::size_t nodes) {
  CommandList taken;
  std::vector<CommandList::iterator> falling;
  for (std::size_t left = inWholeBlocks(nodes); left > 0; --left) {
    falling.push_back(taken.emplace(taken.end()));
  }
  std::sort(falling.begin(), falling.end(),
            [](auto one, auto other) { return std::less<>()(&*other, &*one); });
  for (const auto node : falling) {
    taken.erase(node);
  }
}

}  // namespace bench
