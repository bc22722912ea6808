// One node given back to the pool: ns, against the nodes in the process. And what
// the lock of the pool costs by itself, which every node pays twice.

#include <boost/thread/mutex.hpp>
#include <string>

#include "bench/benchmarks.h"
#include "bench/nodes.h"
#include "bench/stopwatch.h"
#include "timedcommand/timedcommand.h"

namespace bench {

namespace {

struct Load {
  std::size_t timelines;
  std::size_t itemsEach;

  [[nodiscard]] std::size_t items() const { return timelines * itemsEach; }
};

using Queues = std::vector<CommandList>;

void addItem(CommandList& queue) {
  queue.emplace_back(hal::AttrGeneric(1.0F), 0U);
}

void loadInBulk(Queues& queues, const Load& load) {
  for (CommandList& queue : queues) {
    for (std::size_t i = 0; i < load.itemsEach; ++i) {
      addItem(queue);
    }
  }
}

void loadInterleaved(Queues& queues, const Load& load) {
  for (std::size_t i = 0; i < load.itemsEach; ++i) {
    for (CommandList& queue : queues) {
      addItem(queue);
    }
  }
}

/// As in a cycle in which every timeline reaches a command.
void removeOneEach(Queues& queues) {
  for (CommandList& queue : queues) {
    queue.pop_front();
  }
}

void preparePool(const Load& load, bool warmed) {
  emptyNodePool();
  if (warmed) {
    warmNodePool(load.items());
  }
}

template <void (*fill)(Queues&, const Load&)>
void drain(benchmark::State& state, Load load, bool warmed) {
  Queues queues(load.timelines);
  Stopwatch watch;
  for ([[maybe_unused]] auto iteration : state) {
    preparePool(load, warmed);
    fill(queues, load);
    watch.start();
    for (std::size_t i = 0; i < load.itemsEach; ++i) {
      removeOneEach(queues);
    }
    state.SetIterationTime(watch.stop());
  }
  countItems(state, static_cast<double>(load.items()));
}

/// Queues half full, their items replaced until none is left of the first.
void settle(Queues& queues, const Load& load) {
  loadInBulk(queues, load);
  for (std::size_t i = 0; i < load.itemsEach / 2; ++i) {
    removeOneEach(queues);
  }
  for (std::size_t i = 0; i < load.itemsEach; ++i) {
    loadInterleaved(queues, {load.timelines, 1});
    removeOneEach(queues);
  }
}

/// One item in and one out of each queue, as in a cycle that is fed.
void stream(benchmark::State& state, Load load, bool warmed) {
  Queues queues(load.timelines);
  preparePool(load, warmed);
  settle(queues, load);
  Stopwatch watch;
  for ([[maybe_unused]] auto iteration : state) {
    loadInterleaved(queues, {load.timelines, 1});
    watch.start();
    removeOneEach(queues);
    state.SetIterationTime(watch.stop());
  }
  countItems(state, static_cast<double>(load.timelines));
}

/// As many locks as a list of so many nodes takes to be built, or to be released.
void lockAgain(benchmark::State& state, std::size_t times) {
  boost::mutex mutex;
  for ([[maybe_unused]] auto iteration : state) {
    for (std::size_t i = 0; i < times; ++i) {
      const boost::mutex::scoped_lock section(mutex);
      benchmark::ClobberMemory();
    }
  }
  countItems(state, 1);
}

void addShape(const std::string& shape, void (*run)(benchmark::State&, Load, bool), Load load) {
  const std::string name = "removal/" + shape + "/" + std::to_string(load.items());
  for (const bool warmed : {false, true}) {
    add(
        name + (warmed ? "/warmed" : "/not_warmed"),
        [=](benchmark::State& state) { run(state, load, warmed); }, Timer::own);
  }
}

}  // namespace

void addPoolBenchmarks() {
  for (const std::size_t times : {std::size_t{1}, std::size_t{250}}) {
    add("pool_lock/" + std::to_string(times) + (times == 1 ? "_time" : "_times"),
        [=](benchmark::State& state) { lockAgain(state, times); });
  }
  for (const Load load : {Load{30, 16}, Load{30, 100}, Load{30, 500}, Load{30, 1700}}) {
    addShape("bulk_drain", drain<loadInBulk>, load);
    addShape("interleaved_drain", drain<loadInterleaved>, load);
    addShape("stream", stream, load);
  }
}

}  // namespace bench
