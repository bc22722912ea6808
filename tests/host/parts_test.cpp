// The parts of the engine, each by its contract.

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <functional>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <tuple>
#include <utility>

#include "host/base/stopsignal.h"
#include "host/engine/engine.h"
#include "host/server/feeds.h"
#include "host/server/stoptickets.h"
#include "tests/support/failingheap.h"
#include "tests/support/mutexprotocol.h"
#include "tests/support/random.h"
#include "tests/support/temporary.h"

namespace {

// Hangs when the waiter does not come through.
TEST(Gate, InheritsPrioritiesAndLetsAWaiterThroughWhereItBreathes) {
  host::Gate gate;
  EXPECT_EQ(latestProtocol, PTHREAD_PRIO_INHERIT);
  std::atomic<bool> through{false};
  std::thread waiter;
  {
    host::GateHold hold(gate);
    waiter = std::thread([&] {
      const std::lock_guard lock(gate);
      through = true;
    });
    while (!through) {
      hold.breathe();
    }
  }
  waiter.join();
}

host::Event reached(std::int64_t timeMs, std::uint32_t batch, int actuator, std::uint32_t count) {
  host::Event event{host::EventKind::reached, host::Fault::none, timeMs, batch, actuator};
  event.count = count;
  return event;
}

TEST(EventRing, GathersWhatIsReachedPerBatchAndCycle) {
  host::EventRing ring;
  for (const int actuator : {0, 1, 2}) {
    for (const std::uint32_t batch : {7U, 8U}) {
      ring.tell(reached(10, batch, actuator, 2), nullptr);
    }
  }
  ring.tell(reached(20, 7, 1, 5), nullptr);
  host::EventRing::Cursor cursor;
  host::EventRing::Counts missed{};
  EXPECT_TRUE(ring.read(cursor, missed).empty()) << "not before it is published";
  ring.publish();
  std::string read;
  for (const host::Event& event : ring.read(cursor, missed)) {
    read += fmt::format("{} of {} on {} at {}; ", event.count, event.batch, event.actuator,
                        event.timeMs);
  }
  EXPECT_EQ(read, "6 of 7 on -1 at 10; 6 of 8 on -1 at 10; 5 of 7 on 1 at 20; ");
}

TEST(EventRing, CountsWhatASlowReaderMissed) {
  Random random(2);
  latestProtocol = PTHREAD_PRIO_NONE;
  host::EventRing ring(500, 8);
  EXPECT_EQ(latestProtocol, PTHREAD_PRIO_INHERIT);
  host::EventRing::Cursor slow;
  host::EventRing::Counts told{}, seen{}, missed{};
  std::vector<host::EventRing::Counts> before;
  for (int i = 0; i < 20'000; ++i) {
    host::Event event = reached(i, 7, 1, 1);
    event.kind = static_cast<host::EventKind>(random.below(host::eventKinds));
    before.push_back(told);
    ++told[static_cast<std::size_t>(event.kind)];
    ring.tell(event, nullptr);
    if (random.below(400) == 0) {
      ring.publish();
      const auto back = random.below(static_cast<std::uint32_t>(std::min(i, 6500)) + 1);
      const std::uint64_t since = before.size() - 1 - back;
      auto again = ring.cursorAt(since);
      ASSERT_EQ(again.next, since);
      ASSERT_EQ(again.seen, before[since]) << "also of what is kept no longer";
      for (std::size_t count = 1; count > 0;) {
        const std::vector<host::Event> events = ring.read(slow, missed);
        count = events.size();
        for (const host::Event& read : events) {
          ++seen[static_cast<std::size_t>(read.kind)];
        }
        std::transform(seen.begin(), seen.end(), missed.begin(), seen.begin(), std::plus<>());
      }
      ASSERT_EQ(seen, told) << "read and missed are all";
      while (!ring.read(again, missed).empty()) {
      }
      ASSERT_EQ(again.seen, told);
    }
  }
  const host::MachineModel machine;
  const host::RequestNumbers numbers;
  const std::map<std::uint32_t, std::string> names;
  host::EventFeed feed({ring, machine, numbers, names}, host::Json::object(), 1, {});
  (void)feed.next();
  const host::Json late = host::Json::parse(feed.next())["missed"];
  std::uint64_t sum = 0;
  for (const auto& member : late.items()) {
    sum += member.value().get<std::uint64_t>();
  }
  EXPECT_EQ(sum, 20'000U - 500 - 1) << "by kind, or as unknown";
  EXPECT_TRUE(late.contains("unknown"));
}

#ifndef BOOST_POOL_VALGRIND  // under which nothing is pooled

using Addresses = std::vector<const void*>;

Addresses addressesOf(const CommandList& nodes) {
  Addresses addresses;
  for (const TimedCommand::commandItem& node : nodes) {
    addresses.push_back(&node);
  }
  std::sort(addresses.begin(), addresses.end(), std::less<>());
  return addresses;
}

/// The nodes that an axis has for itself, looked at and given back.
Addresses ownNodes(host::NodeReserve& reserve, std::size_t axis) {
  CommandList nodes;
  reserve.lend(axis, reserve.ownNodes(axis), nodes);
  Addresses addresses = addressesOf(nodes);
  reserve.giveBack(nodes);
  return addresses;
}

/// How many nodes the pool gives without growing.
std::size_t freeNodes() {
  CommandList nodes;
  for (const std::size_t before = poolNodes; poolNodes == before;) {
    nodes.emplace_back(hal::AttrGeneric(), 0U);
  }
  return nodes.size() - 1;
}

TEST(NodeReserve, KeepsThePoolAsItIs) {
  const std::vector<std::size_t> sizes = {50, 200, 80};
  std::vector<Addresses> ranges;
  std::size_t filled = 0;
  {
    host::NodeReserve reserve;
    const std::size_t before = poolNodes;
    reserve.fill(sizes);
    filled = poolNodes - before;
    EXPECT_GE(filled, 330U + host::NodeReserve::commonNodes);
    for (std::size_t axis = 0; axis < sizes.size(); ++axis) {
      ranges.push_back(ownNodes(reserve, axis));
      EXPECT_EQ(ranges[axis].size(), sizes[axis]);
      EXPECT_GE(reserve.available(axis), sizes[axis] + host::NodeReserve::commonNodes);
      EXPECT_TRUE(axis == 0 || std::less<>()(ranges[axis].back(), ranges[axis - 1].front()));
    }
    std::vector<TimedCommand> timelines(sizes.size());
    Random random(3);
    for (std::uint32_t round = 0; round < 100'000; ++round) {
      const auto axis = std::size_t{random.below(3)};
      std::size_t released = timelines[axis].commandList.size();
      CommandList nodes;
      reserve.lend(axis, random.below(300), nodes);
      for (TimedCommand::commandItem& node : nodes) {
        node = {hal::AttrGeneric(), round + random.below(100)};
      }
      timelines[axis].pushTimedCommand(nodes, TimedCommand::REPLACE);
      for (; released > 0; released -= std::min<std::size_t>(released, 64)) {
        reserve.takeBack(std::min<std::size_t>(released, 64));
      }
    }
    EXPECT_EQ(poolNodes - before, filled) << "the pool has grown";
    for (TimedCommand& timeline : timelines) {
      const std::size_t released = timeline.commandList.size();
      timeline.commandList.clear();
      reserve.takeBack(released);
    }
    for (std::size_t axis = 0; axis < sizes.size(); ++axis) {
      EXPECT_EQ(ownNodes(reserve, axis), ranges[axis]) << "nodes of others";
    }
    EXPECT_LE(freeNodes(), 2U);
  }
  EXPECT_GE(freeNodes(), filled);
}

#endif

TEST(Pacer, GoesAlongWithTheClockWithinTheBound) {
  struct Wake {
    std::int64_t clockCycle, boundMs, timeMs;
  };
  struct Course {
    host::Late late;
    std::vector<Wake> wakes;
    host::PaceCount count;
  };
  constexpr std::int64_t none = host::unboundedMs;
  constexpr auto stand = host::Late::stand, catchUp = host::Late::catchUp;
  const Course courses[] = {
      {stand, {{0, none, 0}, {1, none, 10}, {2, none, 20}}, {}},
      {stand, {{0, none, 0}, {2, none, 20}, {5, none, 50}, {6, none, 60}}, {3, 0, 0, 0}},
      {stand, {{0, none, 0}, {4, none, 10}, {5, none, 20}}, {0, 1, 30, 0}},
      {stand, {{0, none, 0}, {1, 9, 0}, {2, 10, 10}, {3, none, 20}}, {0, 0, 0, 1}},
      {stand, {{0, none, 0}, {3, 25, 20}, {4, 15, 20}, {5, none, 30}}, {2, 0, 0, 2}},
      {stand, {{0, -10, -10}, {400, -1, -10}, {401, 0, 0}}, {0, 1, 3990, 2}},
      {catchUp, {{0, none, 0}, {4, none, 40}, {5, none, 50}}, {0, 1, 30, 0}},
      {catchUp,
       {{0, none, 0}, {50, 35, 30}, {51, 35, 30}, {52, 515, 510}, {53, none, 530}},
       {0, 1, 490, 1}}};
  for (const Course& course : courses) {
    host::Pacer pacer(10, course.late);
    for (const Wake& wake : course.wakes) {
      pacer.wake(wake.clockCycle);
      const std::int64_t stepMs = pacer.stepMs(wake.boundMs);
      EXPECT_TRUE(wake.boundMs < none || !pacer.isHeld(stepMs));
      pacer.go(stepMs);
      EXPECT_EQ(pacer.timeMs(), wake.timeMs) << "at " << wake.clockCycle;
    }
    const host::PaceCount &is = pacer.count(), &expected = course.count;
    EXPECT_EQ(std::tie(is.overruns, is.stalls, is.stalledMs, is.stands),
              std::tie(expected.overruns, expected.stalls, expected.stalledMs, expected.stands));
  }
}

host::ScheduledBatch batchOf(std::size_t values, std::int64_t originMs = 0) {
  const auto motion = std::make_shared<host::CommandBatch>();
  motion->values.resize(values);
  return {motion, std::nullopt, originMs};
}

TEST(Inbox, IsBoundedByPointsAndBatches) {
  host::Inbox inbox;
  const host::ScheduledBatch large = batchOf(host::Inbox::mostPoints / 2);
  EXPECT_EQ(inbox.put(large), 0U);
  EXPECT_EQ(inbox.put(large), 1U);
  EXPECT_EQ(inbox.put(batchOf(1)), std::nullopt);
  EXPECT_EQ(inbox.put(batchOf(0)), 2U);
  EXPECT_EQ(inbox.takeAll().size(), 3U);
  const host::ScheduledBatch empty = batchOf(0);
  for (std::uint32_t i = 0; i < host::Inbox::mostBatches; ++i) {
    ASSERT_EQ(inbox.put(empty), 3 + i);
  }
  EXPECT_EQ(inbox.put(empty), std::nullopt);
  EXPECT_EQ(inbox.takeAll().size(), host::Inbox::mostBatches);
  EXPECT_EQ(inbox.put(large), 3 + host::Inbox::mostBatches);
}

TEST(Inbox, NumbersWhatManyThreadsPutInTheOrderOfArrival) {
  constexpr std::size_t threads = 4, each = 5000;
  host::Inbox inbox;
  std::vector<std::uint32_t> numbers(threads * each);
  std::vector<std::thread> all;
  for (std::size_t thread = 0; thread < threads; ++thread) {
    all.emplace_back([&, thread] {
      for (std::size_t i = thread * each; i < (thread + 1) * each; ++i) {
        numbers[i] = *inbox.put(batchOf(1, static_cast<std::int64_t>(i)));
      }
    });
  }
  std::vector<host::Inbox::Arrival> came;
  while (came.size() < numbers.size()) {
    for (host::Inbox::Arrival& arrival : inbox.takeAll()) {
      came.push_back(std::move(arrival));
    }
  }
  for (std::thread& thread : all) {
    thread.join();
  }
  for (std::size_t i = 0; i < came.size(); ++i) {
    ASSERT_EQ(numbers[static_cast<std::size_t>(came[i].batch.originMs)], i);
    ASSERT_EQ(came[i].number, i);
  }
}

// Hangs when a later signal is not another wish.
TEST(StopTickets, RefuseWhatCameBeforeAStopOfItsAxes) {
  host::StopTickets stops;
  host::CommandBatch batch;
  batch.actuators = {1, 2};
  int asked = 0;
  const auto takenSince = [&](std::uint64_t ticket) {
    return !stops.unlessStopped(ticket, {&batch}, [&] { ++asked; });
  };
  const std::uint64_t early = stops.ticket();
  stops.note({0, 3}, [] {});
  EXPECT_TRUE(takenSince(early));
  stops.note({2}, [] {});
  EXPECT_FALSE(takenSince(early));
  EXPECT_TRUE(takenSince(stops.ticket()));
  EXPECT_EQ(asked, 2);
}

TEST(StopSignal, IsRepeatedByALaterOne) {
  for (const bool moves : {true, false}) {
    const auto endByTwo = [moves] {
      const host::StopSignal stopSignal;
      moves ? void() : host::StopSignal::letRepeatedEnd();
      std::raise(SIGTERM);
      while (!host::StopSignal::isRepeated()) {
        std::raise(SIGINT);
      }
      moves ? std::raise(SIGQUIT) : 0;
    };
    EXPECT_EXIT(endByTwo(), testing::KilledBySignal(moves ? SIGQUIT : SIGINT), "");
  }
  {
    const host::StopSignal stopSignal;
    std::raise(SIGTERM);
    std::raise(SIGINT);
    EXPECT_EQ(host::StopSignal::received(), SIGTERM);
    while (!host::StopSignal::isRepeated()) {
      std::raise(SIGINT);
    }
    EXPECT_EQ(host::StopSignal::received(), SIGTERM);
  }
  const host::StopSignal another;
  EXPECT_FALSE(host::StopSignal::received() != 0 || host::StopSignal::isRepeated());
}

bool isRegistryEmpty() {
  return getBrokerManager() == nullptr && getTorvexManager() == nullptr &&
         getAttrFullNameManager() == nullptr && getTimedCommandManager() == nullptr;
}

TEST(Engine, LeavesNothingBehindWhenItCannotStart) {
  const Temporary temporary;
  host::MachineModel machine;
  machine.description.actuators.resize(2);
  machine.description.actuators[0].name = "a";
  machine.description.actuators[1].name = "b";
  host::EngineOptions options;
  options.preferenceDirectory = temporary.path("");
  options.poolName = "no/name";
  auto* const some = reinterpret_cast<Torvex*>(&machine);
  EXPECT_THROW(host::Engine(machine, 10, options, some), simulation::Error);
  EXPECT_TRUE(isRegistryEmpty());
#ifndef BOOST_POOL_VALGRIND  // whose pool asks for memory to give a node back
  options.poolName = temporary.pool();
  long failures = 0;
  for (bool started = false; !started; ++failures) {
    placesToFailure = failures + 1;
    try {
      const host::Engine engine(machine, 10, options, some);
      started = placesToFailure.exchange(0) > 0;
      EXPECT_FALSE(isRegistryEmpty());
    } catch (const std::exception&) {
      placesToFailure = 0;
    }
    ASSERT_TRUE(isRegistryEmpty()) << "allocation " << failures;
    ASSERT_FALSE(temporary.poolExists()) << "allocation " << failures;
  }
  EXPECT_GT(failures, 50);
#endif
}

}  // namespace
