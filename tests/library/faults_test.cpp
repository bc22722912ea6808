// Every operation of the library, with a fault at each place in turn where the platform
// is called or memory is taken, until the operation gets through.

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <new>

#include "attrfullname/attrfullname.h"
#include "fakeplatform.h"
#include "preferences/exportqelvopreferences.h"
#include "registry/attrfullnamemanager.h"
#include "registry/brokermanager.h"
#include "timedcommandmanager/timedcommandmanager.h"

namespace {

/// So many allocations later one fails, and `allFollow` or not; none does while it is 0.
long allocationsToFailure = 0;
bool allFollow = false;
long failures = 0, liveBlocks = 0;
std::size_t poolNodes = 0;

[[gnu::noinline]] void* take(std::size_t size) noexcept {
  if (allocationsToFailure > 0 && --allocationsToFailure == 0) {
    ++failures;
    allocationsToFailure = allFollow ? 1 : 0;
    return nullptr;
  }
  ++liveBlocks;
  return std::malloc(size);
}

[[gnu::noinline]] void release(void* block) noexcept {
  liveBlocks -= block == nullptr ? 0 : 1;
  std::free(block);
}

}  // namespace

// The program's own heap functions serve the library too.
void* operator new(std::size_t size) {
  void* const block = take(size);
  return block == nullptr ? throw std::bad_alloc() : block;
}

// The source of the node pool.
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  void* const block = take(size);
  poolNodes += block == nullptr ? 0 : size / sizeof(boost::CommandNodeLayout);
  return block;
}

void operator delete(void* block) noexcept {
  release(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
  release(block);
}

// The array form of new that throws is not used.
// NOLINTNEXTLINE(misc-new-delete-overloads)
void operator delete[](void* block) noexcept {
  release(block);
}

void operator delete[](void* block, std::size_t /*size*/) noexcept {
  release(block);
}

namespace {

constexpr int armOffset = 1, leg = 2, late = 4;

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
      timeline.commandList = items({5, 9, 20});
    }
    for (const char* name : {"/A", "/B"}) {
      platform.prefer(platform.containers["Arm"], name, 8).value.asText = longText;
    }
    setAttrFullNameManager(&names);
    setBrokerManager(boost::shared_ptr<FakeBroker>(new FakeBroker));
    platform.calls.reserve(10000);
    platform.calls.clear();
  }
  ~Rig() {
    setBrokerManager(nullptr);
    setAttrFullNameManager(nullptr);
  }

  [[nodiscard]] std::size_t countNodes() const {
    std::size_t count = list.size();
    for (const TimedCommand& timeline : manager.commandTable) {
      count += timeline.commandList.size();
    }
    return count;
  }
  static CommandList items(std::initializer_list<unsigned int> times) {
    CommandList list;
    for (const unsigned int time : times) {
      list.emplace_back(hal::AttrGeneric(static_cast<float>(time)), time);
    }
    return list;
  }
  static std::string textOf(const CommandList& list) {
    std::string text;
    for (const TimedCommand::commandItem& item : list) {
      text += std::to_string(item.time) + " ";
    }
    return text;
  }

  /// All that stays in the library, and what it wrote by the step law.
  std::string state() {
    std::string text;
    for (const TimedCommand& timeline : manager.commandTable) {
      text += textOf(timeline.commandList) + (timeline.isSubDevice == 0 ? "" : "bound") +
              (timeline.interpolationPossible == 0 ? "" : "~") + "| ";
    }
    for (const TimedCommand* timeline : manager.actuatorCommands) {
      text += "->" + std::to_string(timeline - manager.commandTable.data());
    }
    for (const char* key : {"Arm/Value", "Arm/Offset", "Leg/Value", "Late/Value"}) {
      text += " " + std::to_string(names.getAttributeIndexWithName(key));
    }
    return text + callWith(" leg", platform.attributes[leg].value.asFloat) + " [" + textOf(list) +
           "] " + std::to_string(platform.written.getSize()) + " " + result;
  }

  static inline char longText[] = "a text that does not fit into a string without the heap";
  FakePlatform platform;
  TimedCommandManager manager;
  AttrFullName names;
  /// A caller's.
  CommandList list = items({7, 8});
  std::string result;
};

struct Operation {
  const char* name;
  std::function<void(Rig&)> run;
  /// What must hold after a failure; `before` is the state without the operation.
  std::function<void(Rig&, const std::string& before)> check;
};

void expectUnchanged(Rig& rig, const std::string& before) {
  EXPECT_EQ(rig.state(), before);
}

/// The tables are as they were, or the new one has its size.
void expectTable(Rig& rig, const std::string& before, std::size_t kept) {
  if (rig.manager.commandTable.size() == 4) {
    expectUnchanged(rig, before);
    return;
  }
  EXPECT_EQ(rig.manager.commandTable[armOffset].commandList.size(), kept);
}

/// The line may have removed what it reached and no more; a step that failed is met again.
void expectWhatWasNotWritten(Rig& rig, const std::string& /*before*/) {
  EXPECT_EQ(rig.manager.commandTable[0].commandList.back().time, 20U);
  const bool wroteOne = rig.platform.attributes[leg].value.asFloat == 5.0F;
  EXPECT_EQ(rig.manager.commandTable[leg].commandList.front().time, wroteOne ? 9U : 5U);
}

const Operation operations[] = {
    {"full build", [](Rig& rig) { rig.manager.initTimedCommand(0); },
     [](Rig& rig, const std::string& before) { expectTable(rig, before, 0); }},
    {"partial build", [](Rig& rig) { rig.manager.initTimedCommand(late); },
     [](Rig& rig, const std::string& before) { expectTable(rig, before, 3); }},
    {"names anew", [](Rig& rig) { rig.names.initNameList(0); },
     [](Rig& rig, const std::string&) {
       const int index = rig.manager.testActuatorName("Arm/Value");
       EXPECT_TRUE(index == 0 || rig.manager.testActuatorName("Leg/Value") == -1);
     }},
    {"more names", [](Rig& rig) { rig.names.initNameList(late); }, expectUnchanged},
    {"key", [](Rig& rig) { rig.result = rig.names.computeAttributeFullName(late); },
     expectUnchanged},
    {"key of a preference",
     [](Rig& rig) {
       rig.result = rig.names.getZRMemoryNameForPreference(&rig.platform.preferences.back(),
                                                           &rig.platform.attributes[0]);
     },
     expectUnchanged},
    {"look-up",
     [](Rig& rig) { rig.result = std::to_string(rig.manager.testActuatorName("Leg/Value")); },
     expectUnchanged},
    {"construction", [](Rig& rig) { rig.result = Rig::textOf(TimedCommand().commandList); },
     expectUnchanged},
    {"copy",
     [](Rig& rig) {
       rig.result = Rig::textOf(TimedCommand(rig.manager.commandTable[leg]).commandList);
     },
     expectUnchanged},
    {"assignment",
     [](Rig& rig) {
       TimedCommand target;
       target = rig.manager.commandTable[leg];
       rig.result = Rig::textOf(target.commandList);
     },
     expectUnchanged},
    {"preAllocate", [](Rig& rig) { rig.manager.commandTable[leg].preAllocate(); },
     [](Rig& rig, const std::string& before) {
       if (rig.platform.calls != "lock unlock") {
         expectUnchanged(rig, before);
       }
     }},
    {"choice of the law",
     [](Rig& rig) { rig.manager.commandTable[leg].testIfInterpolationPossible(); },
     [](Rig& rig, const std::string&) {
       EXPECT_EQ(rig.manager.commandTable[leg].interpolationPossible, 1);
     }},
    {"push",
     [](Rig& rig) {
       rig.manager.AddTimedCommandWithIndex(leg, rig.list, TimedCommand::CLEAR_AFTER);
     },
     expectUnchanged},
    {"push by name",
     [](Rig& rig) { rig.manager.AddTimedCommand("Leg/Value", rig.list, TimedCommand::REPLACE); },
     expectUnchanged},
    {"head",
     [](Rig& rig) {
       rig.result = std::to_string(rig.manager.commandTable[leg].getNextCommand()->time);
     },
     expectUnchanged},
    {"pop",
     [](Rig& rig) {
       const TimedCommand::commandItem popped = rig.manager.commandTable[leg].popNexCommand();
       EXPECT_EQ(popped.time, 5U);
     },
     expectUnchanged},
    {"cycle", [](Rig& rig) { rig.manager.run(10, 8); }, expectWhatWasNotWritten},
    {"export", [](Rig& /*rig*/) { ExportQelvoPreferences("Arm", Rig::longText); },
     [](Rig& rig, const std::string&) { rig.platform.written.clear(); }},
};

enum class Fault { none, call, oneAllocation, allAllocations };

/// Runs the operation with a fault at the nth place. Whether it ended in an exception.
bool throws(Rig& rig, const Operation& operation, Fault fault, int n) {
  rig.platform.calls.clear();
  rig.platform.callsToFailure = fault == Fault::call ? n : 0;
  allFollow = fault == Fault::allAllocations;
  allocationsToFailure = fault == Fault::oneAllocation || allFollow ? n : 0;
  bool thrown = true;
  try {
    operation.run(rig);
    thrown = false;
  } catch (const FakeFailure&) {
  } catch (const std::bad_alloc&) {
  }
  allocationsToFailure = 0;
  rig.platform.callsToFailure = 0;
  return thrown;
}

/// After a fault at the nth place, and once more without when that one threw, the library
/// must stand where it stands without a fault; `expected` takes that down. The result is
/// false when there is no such place.
bool recovers(const Operation& operation, Fault fault, int n, std::string& expected) {
  const std::string place = std::string(operation.name) + ", fault " +
                            std::to_string(static_cast<int>(fault)) + ":" + std::to_string(n);
  SCOPED_TRACE(place);
  boost::CommandNodePool::purge_memory();
  poolNodes = failures = 0;
  const long blocks = liveBlocks;
  {
    Rig rig;
    // Whatever is taken now makes the pool ask for memory.
    const CommandList others(poolNodes - rig.countNodes(),
                             TimedCommand::commandItem(hal::AttrGeneric(), 0));
    const std::string before = rig.state();
    const bool thrown = throws(rig, operation, fault, n);
    EXPECT_EQ(rig.platform.locksHeld, 0);
    if (thrown) {
      operation.check(rig, before);
      EXPECT_FALSE(throws(rig, operation, Fault::none, 0));
    }
    if (fault == Fault::none) {
      expected += rig.state();  // in the memory that it has
    }
    EXPECT_EQ(rig.state(), expected);
    failures += rig.platform.failures;
  }
#ifndef BOOST_POOL_VALGRIND  // with which each node is a block of memory
  const std::size_t nodes = poolNodes;
  CommandList(nodes, TimedCommand::commandItem(hal::AttrGeneric(), 0)).clear();
  EXPECT_EQ(poolNodes, nodes) << "nodes are lost";
#endif
  boost::CommandNodePool::purge_memory();
  EXPECT_EQ(liveBlocks, blocks) << "memory is lost";
  return failures > 0;
}

void expectRecovery(Fault fault) {
  int places = 0;
  for (const Operation& operation : operations) {
    std::string expected;
    expected.reserve(1000);
    recovers(operation, Fault::none, 0, expected);
    for (int n = 1; recovers(operation, fault, n, expected) && !testing::Test::HasFailure(); ++n) {
      ++places;
    }
  }
  EXPECT_GT(places, 100);
  std::printf("%d places\n", places);
}

TEST(Faults, OfThePlatformLeaveNoTrace) {
  expectRecovery(Fault::call);
}

#ifndef BOOST_POOL_VALGRIND  // whose pool loses nodes itself
TEST(Faults, OfMemoryLeaveNoTrace) {
  expectRecovery(Fault::oneAllocation);
  expectRecovery(Fault::allAllocations);
}
#endif

}  // namespace
