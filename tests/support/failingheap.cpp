#include "tests/support/failingheap.h"

#include <cstdlib>
#include <new>

#include "timedcommand/timedcommand.h"

std::atomic<long> placesToFailure{0}, allocations{0}, liveBlocks{0};
std::atomic<bool> hasFailed{false};
bool allFollow = false, heapFails = true;
std::atomic<std::size_t> poolNodes{0};

bool failsHere() {
  if (placesToFailure > 0 && --placesToFailure == 0) {
    hasFailed = true;
    placesToFailure = allFollow ? 1 : 0;
    return true;
  }
  return false;
}

namespace {

[[gnu::noinline]] void* takeBlock(std::size_t size, bool isPlace = true) noexcept {
  ++allocations;
  if (heapFails && isPlace && failsHere()) {
    return nullptr;
  }
  ++liveBlocks;
  return std::malloc(size);
}

[[gnu::noinline]] void releaseBlock(void* block) noexcept {
  liveBlocks -= block == nullptr ? 0 : 1;
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
  void* const block = takeBlock(size, allFollow);
  poolNodes += block == nullptr ? 0 : size / sizeof(boost::CommandNodeLayout);
  return block;
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
