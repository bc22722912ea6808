#pragma once

#include <atomic>
#include <cstddef>

// A heap that gives out, for programs with failingheap.cpp among their sources.

/// So many places later one fails; none does while it is 0.
extern std::atomic<long> placesToFailure;
extern std::atomic<bool> hasFailed;
/// Whether all behind the one that fails do so, too. If not, the source of the node pool, which
/// asks again for less when it is refused, is no place.
extern bool allFollow;
/// Whether allocations are places.
extern bool heapFails;
extern std::atomic<long> allocations, liveBlocks;
/// What the source of the node pool has given.
extern std::atomic<std::size_t> poolNodes;

/// Passes a place: whether it fails.
bool failsHere();
