// The cycle must not touch the heap. This program counts what each thread asks of it.

#include <gtest/gtest.h>

#include <cstdlib>

#include "host/torvex.h"
#include "tests/host/prepared.h"

// The C library's own, NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" void* __libc_malloc(std::size_t size);
extern "C" void __libc_free(void* block);
// NOLINTEND(bugprone-reserved-identifier)

namespace {

thread_local bool counting = false;
thread_local std::uint64_t heapCalls = 0;

}  // namespace

extern "C" __attribute__((visibility("default"))) void* malloc(std::size_t size) {
  heapCalls += counting ? 1 : 0;
  return __libc_malloc(size);
}

extern "C" __attribute__((visibility("default"))) void free(void* block) {
  heapCalls += counting ? 1 : 0;
  __libc_free(block);
}

namespace {

TEST(Cycle, LeavesTheHeapAloneWhileCommandsArrive) {
  const Prepared setup(30, 3, 10);
  const host::Plan plan = setup.plan();
  Torvex torvex(setup.machine, plan, setup.options);
  host::Trace trace(setup.temporary.path("t.csv"), std::vector<std::string>(60));
  torvex.setTrace(&trace);
  constexpr std::int64_t firstMs = 1000, lastMs = 1'001'000;
  std::uint64_t cycles = 0;
  torvex.run([&](std::int64_t timeMs) {
    counting = false;
    CommandList items;
    for (std::uint32_t i = 1; i <= 4 && timeMs < lastMs; ++i) {
      items.emplace_back(hal::AttrGeneric(0.1F), static_cast<std::uint32_t>(timeMs) + 25 * i);
    }
    (void)getTimedCommandManager()->AddTimedCommand(
        "j0/Value", items, timeMs % 50 == 0 ? TimedCommand::REPLACE : TimedCommand::MERGE);
    counting = timeMs >= firstMs && timeMs < lastMs;
    cycles += counting ? 1 : 0;
  });
  EXPECT_EQ(heapCalls, 0U);
  EXPECT_EQ(cycles, 100'000U);
  counting = true;
  void* volatile block = malloc(1);  // a compiler may leave out what nobody sees
  free(block);
  EXPECT_EQ(heapCalls, 2U) << "nothing is counted";
}

}  // namespace
