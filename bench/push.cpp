// A list built and pushed: ns for each of its items. The queue is put back
// before each push, which is not timed.

#include <algorithm>
#include <random>
#include <string>

#include "bench/benchmarks.h"
#include "bench/rig.h"
#include "bench/stopwatch.h"
#include "bench/vectortimeline.h"
#include "platform/zr/zrcriticalsectionwrite.h"

namespace bench {

namespace {

constexpr std::size_t largestList = 500;
constexpr std::size_t longQueue = 250;

struct Case {
  TimedCommand::commandType type;
  std::vector<unsigned int> queued;
  std::vector<unsigned int> pushed;
};

/// The stamps of the list fall between those of the queue.
Case makeCase(TimedCommand::commandType type, std::size_t queued, std::size_t pushed) {
  return {type, risingStamps(queued, 1000, 20), risingStamps(pushed, 1010, 20)};
}

template <typename Target>
void push(benchmark::State& state, const Case& pushCase) {
  Rig rig(1, Interpolation::linear, 2 * largestList);
  Target target(rig.timeline(0));
  Stopwatch watch;
  for ([[maybe_unused]] auto iteration : state) {
    target.prepare(pushCase);
    watch.start();
    const bool taken = target.push(pushCase);
    state.SetIterationTime(watch.stop());
    if (!taken) {
      state.SkipWithError("refused");
    }
  }
  countItems(state, static_cast<double>(pushCase.pushed.size()));
}

class Torvex {
 public:
  explicit Torvex(TimedCommand& timeline) : timeline_(timeline) {}

  void prepare(const Case& pushCase) {
    CommandList commands;
    timeline_.pushTimedCommand(commands, TimedCommand::REPLACE);
    commands = commandsAt(pushCase.queued);
    timeline_.pushTimedCommand(commands, TimedCommand::MERGE);
  }
  bool push(const Case& pushCase) {
    CommandList commands = commandsAt(pushCase.pushed);
    timeline_.pushTimedCommand(commands, pushCase.type);
    return commands.empty();
  }

 protected:
  TimedCommand& timeline_;  // NOLINT(misc-non-private-member-variables-in-classes)
};

/// Only the push: as long as it takes, the lock of all timelines is held.
class Held : public Torvex {
 public:
  using Torvex::Torvex;

  void prepare(const Case& pushCase) {
    Torvex::prepare(pushCase);
    commands_ = commandsAt(pushCase.pushed);
  }
  bool push(const Case& pushCase) {
    timeline_.pushTimedCommand(commands_, pushCase.type);
    return commands_.empty();
  }

 private:
  CommandList commands_;
};

/// Replaces as one would without thinking of the pool.
class FrontFirst : public Torvex {
 public:
  using Torvex::Torvex;

  bool push(const Case& pushCase) {
    CommandList commands = commandsAt(pushCase.pushed);
    {
      const ZR::ZRCriticalSectionWrite section(timeline_.mutex);
      while (!timeline_.commandList.empty()) {
        timeline_.commandList.pop_front();
      }
    }
    timeline_.pushTimedCommand(commands, TimedCommand::MERGE);
    return commands.empty();
  }
};

template <VectorTimeline::Sorting sorting>
class Vector {
 public:
  explicit Vector(const TimedCommand& timeline)
      : timeline_(timeline.subDeviceAccessor, Interpolation::linear) {}

  void prepare(const Case& pushCase) {
    timeline_.clear();
    pushStamps(pushCase.queued, TimedCommand::MERGE);
  }
  bool push(const Case& pushCase) {
    pushStamps(pushCase.pushed, pushCase.type);
    return true;
  }

 private:
  void pushStamps(const std::vector<unsigned int>& stamps, TimedCommand::commandType type) {
    std::vector<VectorTimeline::Point> points;
    points.reserve(stamps.size());
    for (const unsigned int stamp : stamps) {
      points.emplace_back(hal::AttrGeneric(1.0F), stamp);
    }
    timeline_.push(points, type, sorting);
  }

  VectorTimeline timeline_;
};

using SortingVector = Vector<VectorTimeline::Sorting::always>;
using LookingVector = Vector<VectorTimeline::Sorting::whenNeeded>;

template <typename Target>
void addCase(const std::string& name, const Case& pushCase) {
  add(
      name, [=](benchmark::State& state) { push<Target>(state, pushCase); }, Timer::own);
}

void addBothOrders(const std::string& name, Case pushCase) {
  addCase<Torvex>(name + "/ascending/torvex", pushCase);
  addCase<SortingVector>(name + "/ascending/vector", pushCase);
  std::shuffle(pushCase.pushed.begin(), pushCase.pushed.end(), std::mt19937(1));
  addCase<Torvex>(name + "/shuffled/torvex", pushCase);
  addCase<SortingVector>(name + "/shuffled/vector", pushCase);
}

void addMode(const std::string& mode, TimedCommand::commandType type) {
  for (const std::size_t pushed :
       {std::size_t{1}, std::size_t{10}, std::size_t{100}, largestList}) {
    for (const std::size_t queued : {std::size_t{0}, std::size_t{11}, longQueue}) {
      if (type == TimedCommand::MERGE && queued + pushed > TimedCommand::MAX_TIMELINE_ITEMS) {
        continue;
      }
      addBothOrders(
          "push/" + mode + "/" + std::to_string(pushed) + "_into_" + std::to_string(queued),
          makeCase(type, queued, pushed));
    }
  }
}

/// The longest pushes, and one as a host should make it: ns for the whole list.
void addHeld() {
  const auto addLists = [](std::size_t length, std::size_t queued) {
    const std::string name =
        "lock_held/replace/" + std::to_string(length) + "_into_" + std::to_string(queued);
    Case pushCase = makeCase(TimedCommand::REPLACE, queued, length);
    addCase<Held>(name + "/ascending", pushCase);
    std::shuffle(pushCase.pushed.begin(), pushCase.pushed.end(), std::mt19937(1));
    addCase<Held>(name + "/shuffled", pushCase);
  };
  addLists(32, 32);
  addLists(largestList, largestList);
}

}  // namespace

void addPushBenchmarks() {
  addHeld();
  addMode("merge", TimedCommand::MERGE);
  addMode("replace", TimedCommand::REPLACE);
  addMode("clear_after", TimedCommand::CLEAR_AFTER);
  addMode("clear_before", TimedCommand::CLEAR_BEFORE);
  addCase<FrontFirst>("push/replace/1_into_250/ascending/front_first",
                      makeCase(TimedCommand::REPLACE, longQueue, 1));
  addCase<LookingVector>("push/merge/500_into_0/ascending/vector_looking_first",
                         makeCase(TimedCommand::MERGE, 0, largestList));
}

}  // namespace bench
