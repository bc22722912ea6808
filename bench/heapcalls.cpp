#include "bench/heapcalls.h"

#include <cstdlib>
#include <new>

namespace {

thread_local std::uint64_t calls = 0;

}  // namespace

namespace bench {

std::uint64_t heapCalls() {
  return calls;
}

}  // namespace bench

// In place of the standard library's, which do the same without counting; the others call these.

void* operator new(std::size_t size) {
  ++calls;
  if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
    return memory;
  }
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}
