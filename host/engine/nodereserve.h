#pragma once

#include <cstddef>
#include <vector>

#include "timedcommand/timedcommand.h"

namespace host {

/// How many nodes the pool holds when so many were taken from it: it takes blocks from the
/// heap, the first of 32 nodes, each twice as long as the one before.
std::size_t inWholeBlocks(std::size_t nodes);

/// All spare nodes of the command lists, kept in lists of its own.
///
/// The node pool sorts its free nodes by address: giving one back costs a walk over the free
/// nodes at lower addresses. So the pool is left with next to no free nodes, and each axis has
/// an address range of its own, higher for earlier axes. A cycle that reaches a point of every
/// axis then releases from the highest address to the lowest, each at the head of the free list.
///
/// Used by one thread. `takeBack` holds the lock of the node pool now and then, which
/// inherits no priority: call it under the gate, with small numbers.
class NodeReserve {
 public:
  /// Nodes beside those of the axes, from which an axis borrows beyond its range.
  static constexpr std::size_t commonNodes = std::size_t{2} * TimedCommand::MAX_TIMELINE_ITEMS;

  NodeReserve() = default;
  /// Returns what is here to the pool.
  ~NodeReserve();

  NodeReserve(const NodeReserve&) = delete;
  NodeReserve& operator=(const NodeReserve&) = delete;

  /// Takes the nodes of each axis and the common ones from the pool. Once, before the first
  /// cycle: blocks of the pool that are not in use go back to the heap first. May throw
  /// `std::bad_alloc`.
  void fill(const std::vector<std::size_t>& nodesPerAxis);

  /// How many nodes an axis has for itself.
  [[nodiscard]] std::size_t ownNodes(std::size_t axis) const { return ranges_[axis].size; }
  /// How many common nodes are here.
  [[nodiscard]] std::size_t commonSpare() const { return common_.size(); }
  /// How many nodes an axis can get at once.
  [[nodiscard]] std::size_t available(std::size_t axis) const {
    return ranges_[axis].spare.size() + common_.size();
  }
  /// Moves so many nodes, at most `available`, to the end of a list, to be assigned.
  void lend(std::size_t axis, std::size_t count, CommandList& to);
  /// Nodes that were lent and not used.
  void giveBack(CommandList& nodes);
  /// Takes so many nodes from the pool, which timelines have released there.
  void takeBack(std::size_t count);

 private:
  struct Range {
    CommandList spare;
    std::size_t size = 0;
    /// The lowest address.
    const void* begin = nullptr;
  };

  void layOut(CommandList& nodes, const std::vector<std::size_t>& nodesPerAxis);
  [[nodiscard]] CommandList& homeOf(const TimedCommand::commandItem& node);

  /// In the order of the axes: from high addresses to low ones.
  std::vector<Range> ranges_;
  CommandList common_;
};

}  // namespace host
