#include "host/engine/nodereserve.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <numeric>

namespace host {
namespace {

using Nodes = std::vector<CommandList::iterator>;

Nodes fromHighToLow(CommandList& list) {
  Nodes nodes;
  nodes.reserve(list.size());
  for (auto node = list.begin(); node != list.end(); ++node) {
    nodes.push_back(node);
  }
  std::sort(nodes.begin(), nodes.end(),
            [](auto one, auto other) { return std::less<>()(&*other, &*one); });
  return nodes;
}

/// Moves up to `count` nodes, and tells how many. A part of a list is walked over twice, by
/// whoever looks for its end and by the list that counts it; a whole one is not.
std::size_t moveSome(CommandList& from, std::size_t count, CommandList& to) {
  const std::size_t moved = std::min(count, from.size());
  if (moved == from.size()) {
    to.splice(to.end(), from);
  } else {
    to.splice(to.end(), from, from.begin(),
              std::next(from.begin(), static_cast<std::ptrdiff_t>(moved)));
  }
  return moved;
}

}  // namespace

std::size_t inWholeBlocks(std::size_t nodes) {
  std::size_t total = 0;
  for (std::size_t block = 32; total < nodes; block *= 2) {
    total += block;
  }
  return total;
}

NodeReserve::~NodeReserve() {
  for (Range& range : ranges_) {
    common_.splice(common_.end(), range.spare);
  }
  // From high addresses to low ones, and without asking for memory.
  common_.sort([](const auto& one, const auto& other) { return std::less<>()(&other, &one); });
  common_.clear();
}

void NodeReserve::fill(const std::vector<std::size_t>& nodesPerAxis) {
  // Every release would walk over what stays free: begin with no free blocks.
  boost::CommandNodePool::release_memory();
  const std::size_t wanted = std::accumulate(nodesPerAxis.begin(), nodesPerAxis.end(), commonNodes);
  CommandList nodes;
  for (std::size_t left = inWholeBlocks(wanted); left > 0; --left) {
    nodes.emplace_back(hal::AttrGeneric(), 0U);
  }
  layOut(nodes, nodesPerAxis);
}

/// Within a range from low addresses to high ones: the library releases what it replaces
/// from the back.
void NodeReserve::layOut(CommandList& nodes, const std::vector<std::size_t>& nodesPerAxis) {
  const Nodes falling = fromHighToLow(nodes);
  auto node = falling.begin();
  for (const std::size_t size : nodesPerAxis) {
    Range& range = ranges_.emplace_back();
    range.size = size;
    for (std::size_t i = 0; i < size; ++i) {
      range.spare.splice(range.spare.begin(), nodes, *node);
      range.begin = &**node;
      ++node;
    }
  }
  common_.splice(common_.end(), nodes);
}

CommandList& NodeReserve::homeOf(const TimedCommand::commandItem& node) {
  const auto range = std::lower_bound(
      ranges_.begin(), ranges_.end(), &node,
      [](const Range& one, const void* address) { return std::less<>()(address, one.begin); });
  // A node that another party brought may lie in a range that is complete.
  const bool hasRoom = range != ranges_.end() && range->spare.size() < range->size;
  return hasRoom ? range->spare : common_;
}

void NodeReserve::lend(std::size_t axis, std::size_t count, CommandList& to) {
  count -= moveSome(ranges_[axis].spare, count, to);
  moveSome(common_, count, to);
}

void NodeReserve::giveBack(CommandList& nodes) {
  while (!nodes.empty()) {
    CommandList& home = homeOf(nodes.front());
    home.splice(home.end(), nodes, nodes.begin());
  }
}

void NodeReserve::takeBack(std::size_t count) {
  CommandList nodes;
  for (; count > 0; --count) {
    nodes.emplace_back(hal::AttrGeneric(), 0U);
  }
  giveBack(nodes);
}

}  // namespace host
