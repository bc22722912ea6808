#include <cstdlib>

#include "fakeplatform.h"
#include "timedcommand/timedcommand.h"

namespace {
long allocations = 0, blocks = 0;  // blocks are allocated and not yet freed
}  // namespace

// The program's own heap functions serve the library too.
void* operator new(std::size_t size) {
  ++allocations;
  ++blocks;
  return std::malloc(size);
}

void operator delete(void* block) noexcept {
  blocks -= block == nullptr ? 0 : 1;
  std::free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
  operator delete(block);
}

// One pool serves the program's lists and the library's: nodes made on one
// side and released on the other go round, and no block is added.
TEST(NodePool, DoesNotGrowWithTheNumberOfCommands) {
  FakePlatform platform;
  TimedCommand timeline;
  timeline.preAllocate();
#ifndef BOOST_POOL_VALGRIND  // under which nothing is pooled
  const long allocationsBefore = allocations;
  const CommandList few(16, {hal::AttrGeneric(1), 0});
  EXPECT_EQ(allocations, allocationsBefore) << "the pool was empty before";
#endif
  timeline.deviceAttr = &platform.attributes[0];
  timeline.commandList.emplace_back(hal::AttrGeneric(), 0x3FFFFFFF);  // to be merged before
  long blocksAfterWarmUp = 0, allocationsInside = 0, copied = 0;
  for (unsigned int time = 0; time < 2010 * 500; time += 500) {
    platform.calls.clear();
    CommandList commands(500, {hal::AttrGeneric(1), time});
    const TimedCommand::commandItem* const last = &commands.back();  // equal stamps reverse
    const long before = allocations;
    timeline.pushTimedCommand(commands, TimedCommand::CLEAR_BEFORE);
    copied += timeline.getNextCommand() == last ? 0 : 1;
    timeline.run(time + time % 1000, time);
    allocationsInside += time < 5000 ? 0 : allocations - before;
    blocksAfterWarmUp = time < 5000 ? blocks : blocksAfterWarmUp;
  }
  EXPECT_EQ(blocks, blocksAfterWarmUp);
  EXPECT_EQ(allocationsInside, 0);
  EXPECT_EQ(copied, 0);
}
