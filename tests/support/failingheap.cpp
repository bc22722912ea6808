#include "tests/support/failingheap.h"

#include <cstdlib>
#include <new>

std::atomic<long> allocationsToFailure{0};
std::atomic<bool> hasFailed{false};
bool allFollow = false;
std::atomic<std::size_t> poolBytes{0};

namespace {

[[gnu::noinline]] void* takeBlock(std::size_t size) noexcept {
  if (allocationsToFailure > 0 && --allocationsToFailure == 0) {
    hasFailed = true;
    allocationsToFailure = allFollow ? 1 : 0;
    return nullptr;
  }
  return std::malloc(size);
}

[[gnu::noinline]] void releaseBlock(void* block) noexcept {
  std::free(block);
}

}  // namespace

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
