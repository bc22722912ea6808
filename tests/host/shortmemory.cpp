// The tool, with a memory that gives out: short_of_memory N once|on ARGUMENTS...
// Allocation N fails, with "on" all that follow, too; none does when N is 0. The exit
// status is 100 more when one has failed.

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string_view>

#include "host/commandline.h"

namespace {

/// So many allocations later one fails; none does while it is 0.
std::atomic<long> allocationsToFailure{0};
std::atomic<bool> failed{false};
bool allFollow = false;

[[gnu::noinline]] void* take(std::size_t size) noexcept {
  if (allocationsToFailure > 0 && --allocationsToFailure == 0) {
    failed = true;
    allocationsToFailure = allFollow ? 1 : 0;
    return nullptr;
  }
  return std::malloc(size);
}

}  // namespace

void* operator new(std::size_t size) {
  void* const block = take(size);
  return block == nullptr ? throw std::bad_alloc() : block;
}

void* operator new[](std::size_t size) {
  return operator new(size);
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return take(size);
}

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return take(size);
}

void operator delete(void* block) noexcept {
  std::free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
  std::free(block);
}

void operator delete[](void* block) noexcept {
  std::free(block);
}

void operator delete[](void* block, std::size_t /*size*/) noexcept {
  std::free(block);
}

int main(int argc, char** argv) {
  if (argc < 3) {
    return 99;
  }
  alarm(60);
  allFollow = std::string_view(argv[2]) == "on";
  allocationsToFailure = std::atol(argv[1]);
  const int status = host::runCommandLine(argc - 2, argv + 2);
  _exit(failed ? 100 + status : status);
}
