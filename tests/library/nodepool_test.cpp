#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "fakeplatform.h"
#include "timedcommand/timedcommand.h"

namespace {
long allocations = 0;
long blocks = 0;  // allocated and not yet freed
}  // namespace

// The program's own heap functions serve the library too.
void* operator new(std::size_t size) {
  void* block = std::malloc(size);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  ++allocations;
  ++blocks;
  return block;
}

void operator delete(void* block) noexcept {
  blocks -= block == nullptr ? 0 : 1;
  std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
  operator delete(block);
}

namespace {

CommandList listFrom(unsigned int time, int count) {
  CommandList commands;
  for (int i = 0; i < count; ++i) {
    commands.emplace_back(hal::AttrGeneric(1), time + static_cast<unsigned int>(i));
  }
  return commands;
}

}  // namespace

TEST(NodePool, PreallocationLeavesNodesForTheFirstCommands) {
#ifdef BOOST_POOL_VALGRIND
  GTEST_SKIP() << "the instrumented pool keeps no free nodes";
#endif
  FakePlatform platform;
  TimedCommand timeline;
  EXPECT_EQ(allocations, 0) << "measured too late";
}

// One pool serves the program's lists and the library's: nodes made on one
// side and released on the other go round, and no block is added.
TEST(NodePool, DoesNotGrowWithTheNumberOfCommands) {
  FakePlatform platform;
  platform.recording = false;
  TimedCommand timeline;
  FakeContainer& arm = platform.addActuator("Arm", {"Value"});
  timeline.deviceAttr = &platform.attributes[0];
  timeline.subDeviceAccessor = hal::SubDeviceAccessor(&arm);
  timeline.isSubDevice = 1;
  timeline.interpolationPossible = 1;
  long blocksAfterWarmUp = 0;
  long allocationsOfTheLibrary = 0;
  unsigned int time = 0;
  for (int round = 0; round < 2010; ++round) {
    CommandList commands = listFrom(time, 500);
    const long before = allocations;
    timeline.pushTimedCommand(commands, TimedCommand::REPLACE);
    time += round % 2 == 0 ? 500 : 10;
    timeline.run(time, time - 10);
    allocationsOfTheLibrary += allocations - before;
    EXPECT_TRUE(commands.empty());
    if (round == 9) {
      timeline.commandList.clear();
      blocksAfterWarmUp = blocks;
    }
  }
  timeline.commandList.clear();
  EXPECT_EQ(blocks, blocksAfterWarmUp);
  EXPECT_EQ(allocationsOfTheLibrary, 0);
}
