#pragma once

#include <atomic>
#include <cstdlib>
#include <new>

// A heap that gives out, for the one file of a program that includes this.

/// So many allocations later one fails; none does while it is 0.
inline std::atomic<long> allocationsToFailure{0};
inline std::atomic<bool> hasFailed{false};
/// Whether all behind the one that fails do so, too.
inline bool allFollow = false;
/// What the source of the node pool was asked for.
inline std::atomic<std::size_t> poolBytes{0};

[[gnu::noinline]] inline void* takeBlock(std::size_t size) noexcept {
  if (allocationsToFailure > 0 && --allocationsToFailure == 0) {
    hasFailed = true;
    allocationsToFailure = allFollow ? 1 : 0;
    return nullptr;
  }
  return std::malloc(size);
}

[[gnu::noinline]] inline void releaseBlock(void* block) noexcept {
  std::free(block);
}

void* operator new(std::size_t size) {
  void* const block = takeBlock(size);
  return block == nullptr ? throw std::bad_alloc() : block;
}

void* operator new[](std::size_t size) {
  return operator new(size);
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return takeBlock(size);
}

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  poolBytes += size;
  return takeBlock(size);
}

void operator delete(void* block) noexcept {
  releaseBlock(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
  releaseBlock(block);
}

void operator delete[](void* block) noexcept {
  releaseBlock(block);
}

void operator delete[](void* block, std::size_t /*size*/) noexcept {
  releaseBlock(block);
}
