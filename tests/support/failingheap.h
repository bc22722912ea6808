#pragma once

#include <atomic>
#include <cstddef>

// A heap that gives out, for programs with failingheap.cpp among their sources.

/// So many allocations later one fails; none does while it is 0.
extern std::atomic<long> allocationsToFailure;
extern std::atomic<bool> hasFailed;
/// Whether all behind the one that fails do so, too.
extern bool allFollow;
/// What the source of the node pool was asked for.
extern std::atomic<std::size_t> poolBytes;
