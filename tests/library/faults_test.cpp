// Every operation of the library, with a fault at each place in turn where the platform
// is called or memory is taken, until the operation gets through; and that the node
// pool does not grow.

#include <gtest/gtest.h>

#include <cstdio>
#include <new>

#include "attrfullname/attrfullname.h"
#include "fakeplatform.h"
#include "preferences/exportqelvopreferences.h"
#include "registry/attrfullnamemanager.h"
#include "registry/brokermanager.h"
#include "tests/support/failingheap.h"
#include "timedcommandmanager/timedcommandmanager.h"

namespace {

constexpr int armOffset = 1, leg = 2, late = 4;
char longText[] = "a text that does not fit into a string without the heap";

/// Two actuators, one that steps, with commands on every timeline; an attribute that is
/// in the tables only after the next build; two preferences.
struct Rig {
  Rig() {
    platform.add("Arm", {"Value", "Offset"}).actuator = true;
    platform.add("Leg", {"Value"}).actuator = true;
    platform.containers["Leg"].interpolation = false;
    platform.add("Board", {"Version"}).kind = hal::deviceKind;
    manager.initTimedCommand(0);
    names.initNameList(0);
    platform.add("Late", {"Value"}).actuator = true;
    for (TimedCommand& timeline : manager.commandTable) {
      timeline.commandList = {
          {hal::AttrGeneric(5), 5}, {hal::AttrGeneric(9), 9}, {hal::AttrGeneric(20), 20}};
    }
    for (const char* name : {"/A", "/B"}) {
      platform.prefer(platform.containers["Arm"], name, 8).value.asText = longText;
    }
    setAttrFullNameManager(&names);
    platform.calls.reserve(10000);
    platform.fails = failsHere;
  }

  /// All that stays in the library, and what step interpolation wrote.
  std::string state() {
    std::string text;
    for (const TimedCommand& timeline : manager.commandTable) {
      for (const TimedCommand::commandItem& item : timeline.commandList) {
        text += std::to_string(item.time) + " ";
      }
      text += std::to_string(timeline.isSubDevice) + std::to_string(timeline.interpolationPossible);
    }
    for (const TimedCommand* timeline : manager.actuatorCommands) {
      text += "->" + std::to_string(timeline - manager.commandTable.data());
    }
    for (const char* key : {"Arm/Value", "Arm/Offset", "Leg/Value", "Late/Value"}) {
      text += " " + std::to_string(names.getAttributeIndexWithName(key));
    }
    for (const TimedCommand::commandItem& item : list) {
      text += " given " + std::to_string(item.time);
    }
    return text + callWith(" leg", platform.attributes[leg].value.asFloat) + " " +
           std::to_string(platform.written.getSize());
  }

  FakePlatform platform;
  TimedCommandManager manager;
  AttrFullName names;
  /// A caller's, not in order.
  CommandList list = {{hal::AttrGeneric(8), 8}, {hal::AttrGeneric(7), 7}};
};

struct Operation {
  const char* name;
  void (*run)(Rig&);
  /// What must hold after a failure; `before` is the state without the operation.
  void (*check)(Rig&, const std::string& before);
};

void expectUnchanged(Rig& rig, const std::string& before) {
  EXPECT_EQ(rig.state(), before);
}

/// The tables are as they were, or the new one has its size and kept what it was to keep.
void expectTable(Rig& rig, const std::string& before, std::size_t kept) {
  if (rig.manager.commandTable.size() == late) {
    expectUnchanged(rig, before);
  } else {
    EXPECT_EQ(rig.manager.commandTable[armOffset].commandList.size(), kept);
  }
}

/// Whatever is known has its index, and all before it is known.
void expectFirstNames(Rig& rig, const std::string& /*before*/) {
  const int index = rig.names.getAttributeIndexWithName("Arm/Value");
  EXPECT_TRUE(index == 0 || rig.names.getAttributeIndexWithName("Leg/Value") == -1);
}

/// The line may have removed what it reached and no more; a step that failed is met again.
void expectWhatWasNotWritten(Rig& rig, const std::string& /*before*/) {
  EXPECT_EQ(rig.manager.commandTable[0].commandList.back().time, 20U);
  const bool wroteOne = rig.platform.attributes[leg].value.asFloat == 5.0F;
  EXPECT_EQ(rig.manager.commandTable[leg].commandList.front().time, wroteOne ? 9U : 5U);
}

/// Only where the lock was not to be had the commands are still there.
void expectEmptied(Rig& rig, const std::string& before) {
  const std::string& calls = rig.platform.calls;
  if (calls.compare(calls.size() - 6, 6, "unlock") == 0) {
    EXPECT_TRUE(rig.manager.commandTable[armOffset].commandList.empty());
  } else {
    expectUnchanged(rig, before);
  }
}

const Operation operations[] = {
    {"full build", [](Rig& rig) { rig.manager.initTimedCommand(0); },
     [](Rig& rig, const std::string& before) { expectTable(rig, before, 0); }},
    {"partial build", [](Rig& rig) { rig.manager.initTimedCommand(late); },
     [](Rig& rig, const std::string& before) { expectTable(rig, before, 3); }},
    {"warming", [](Rig& rig) { rig.manager.commandTable[armOffset].preAllocate(); }, expectEmptied},
    {"taking", [](Rig& rig) { (void)rig.manager.commandTable[leg].popNexCommand(); },
     expectUnchanged},
    {"names anew", [](Rig& rig) { rig.names.initNameList(0); }, expectFirstNames},
    {"more names", [](Rig& rig) { rig.names.initNameList(late); }, expectUnchanged},
    {"copy", [](Rig& rig) { rig.list = TimedCommand(rig.manager.commandTable[leg]).commandList; },
     expectUnchanged},
    {"push",
     [](Rig& rig) { rig.manager.AddTimedCommand("Leg/Value", rig.list, TimedCommand::REPLACE); },
     expectUnchanged},
    {"cycle", [](Rig& rig) { rig.manager.run(10, 8); }, expectWhatWasNotWritten},
    {"export", [](Rig& /*rig*/) { ExportQelvoPreferences("Arm", longText); },
     [](Rig& rig, const std::string&) { rig.platform.written.clear(); }},
};

/// Runs the operation, in which everything fails from the nth place on. Whether there is
/// such a place, and so an exception.
bool throws(Rig& rig, const Operation& operation, long n) {
  hasFailed = false;
  placesToFailure = n;
  bool thrown = true;
  try {
    operation.run(rig);
    thrown = false;
  } catch (const FakeFailure&) {
  } catch (const std::bad_alloc&) {
  }
  placesToFailure = 0;
  EXPECT_EQ(thrown, hasFailed) << "a fault is the caller's to know";
  return thrown;
}

/// After a fault at the nth place, and once more without when there is such a place, the
/// library must stand where it stands without a fault. Whether there is such a place.
bool recovers(const Operation& operation, long n, const std::string& expected) {
  SCOPED_TRACE(std::string(operation.name) + ", fault " + std::to_string(n));
  boost::CommandNodePool::purge_memory();
  poolNodes = 0;
  const long blocks = liveBlocks;
  bool thrown = false;
  {
    Rig rig;
    // Whatever is taken now makes the pool ask for memory.
    const CommandList others(poolNodes - 3 * rig.manager.commandTable.size() - rig.list.size(),
                             TimedCommand::commandItem(hal::AttrGeneric(), 0));
    const std::string before = rig.state();
    thrown = throws(rig, operation, n);
    EXPECT_EQ(rig.platform.locksHeld, 0);
    if (thrown) {
      operation.check(rig, before);
      operation.run(rig);
    }
    EXPECT_EQ(rig.state(), expected);
  }
#ifndef BOOST_POOL_VALGRIND  // with which each node is a block of memory
  const std::size_t nodes = poolNodes;
  CommandList(nodes, TimedCommand::commandItem(hal::AttrGeneric(), 0)).clear();
  EXPECT_EQ(poolNodes, nodes) << "nodes are lost";
#endif
  boost::CommandNodePool::purge_memory();
  EXPECT_EQ(liveBlocks, blocks) << "memory is lost";
  return thrown;
}

std::string stateAfter(const Operation& operation) {
  Rig rig;
  operation.run(rig);
  return rig.state();
}

TEST(Faults, LeaveNoTrace) {
#ifdef BOOST_POOL_VALGRIND  // whose pool loses nodes itself
  heapFails = false;
#endif
  setBrokerManager(boost::shared_ptr<FakeBroker>(new FakeBroker));
  int count = 0;
  for (const Operation& operation : operations) {
    const std::string expected = stateAfter(operation);
    for (const bool all : {false, true}) {
      allFollow = all;
      for (long n = 1; recovers(operation, n, expected) && !HasFailure(); ++n) {
        ++count;
      }
    }
  }
  EXPECT_GT(count, 100);
  std::printf("%d places\n", count);
}

// One pool serves the program's lists and the library's: nodes made on one
// side and released on the other go round, and no block is added.
TEST(NodePool, DoesNotGrowWithTheNumberOfCommands) {
  boost::CommandNodePool::purge_memory();
  FakePlatform platform;
  TimedCommand timeline;
#ifndef BOOST_POOL_VALGRIND                         // under which nothing is pooled
  for (const std::size_t nodesLeft : {16U, 15U}) {  // of 32, the first block
    const CommandList others(32 - nodesLeft, {hal::AttrGeneric(1), 0});
    poolNodes = 0;
    timeline.preAllocate();
    EXPECT_EQ(poolNodes > 0, nodesLeft < 16) << nodesLeft;
  }
#endif
  timeline.deviceAttr = &platform.attributes[0];
  timeline.commandList.emplace_back(hal::AttrGeneric(), 0x3FFFFFFF);  // to be merged before
  long blocksAfterWarmUp = 0, allocationsInside = 0;
  for (unsigned int time = 0; time < 2010 * 500; time += 500) {
    platform.calls.clear();
    CommandList commands(500, {hal::AttrGeneric(1), time});
    const TimedCommand::commandItem* const last = &commands.back();  // equal stamps reverse
    const long before = allocations;
    timeline.pushTimedCommand(commands, TimedCommand::CLEAR_BEFORE);
    ASSERT_EQ(timeline.getNextCommand(), last) << "copied";
    timeline.run(time + time % 1000, time);
    allocationsInside += time < 5000 ? 0 : allocations - before;
    blocksAfterWarmUp = time < 5000 ? liveBlocks.load() : blocksAfterWarmUp;
  }
  EXPECT_EQ(liveBlocks, blocksAfterWarmUp);
  EXPECT_EQ(allocationsInside, 0);
}

}  // namespace
