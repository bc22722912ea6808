// The reference host's engine: batches on their way to the library, what they cost while
// they wait, and the cycle in which all axes reach a point.

#include "host/engine/engine.h"

#include <malloc.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <utility>

#include "bench/benchmarks.h"
#include "bench/enginerig.h"
#include "bench/rig.h"
#include "bench/stopwatch.h"
#include "host/engine/nodereserve.h"

namespace bench {

namespace {

constexpr std::size_t cyclesBetweenPoints = 20;

/// Back to an engine that waits for work.
void stop(EngineRig& rig) {
  rig.submit(motionOf(firstAxes(rig.engine.axes().size()), 0, 1, TimedCommand::REPLACE));
  rig.engine.pass();
}

/// From the inbox to backlogs, and as much as the windows hold to the library.
void handIn(benchmark::State& state, std::size_t axes, std::size_t points) {
  EngineRig rig(axes);
  const MotionPointer motion =
      motionOf(firstAxes(axes), points, cyclesBetweenPoints, TimedCommand::MERGE);
  Stopwatch watch;
  for ([[maybe_unused]] auto iteration : state) {
    watch.start();
    rig.submit(motion);
    rig.engine.pass();
    state.SetIterationTime(watch.stop());
    if (rig.engine.axes().back().backlog.size() != points) {
      state.SkipWithError("refused");
    }
    stop(rig);
  }
  countItems(state, static_cast<double>(axes * points));
}

/// All that the command thread does for a batch with a point in each cycle, until the last
/// one is reached.
void stream(benchmark::State& state, std::size_t points) {
  EngineRig rig(1);
  const MotionPointer motion = motionOf({0}, points, 1, TimedCommand::MERGE);
  Stopwatch watch;
  for ([[maybe_unused]] auto iteration : state) {
    double spent = 0.0;
    const auto pass = [&] {
      watch.start();
      rig.engine.pass();
      spent += watch.stop();
    };
    rig.submit(motion);
    for (pass(); !rig.engine.isIdle(); pass()) {
      rig.wake();
      rig.engine.goOn();
    }
    state.SetIterationTime(spent);
  }
  countItems(state, static_cast<double>(points));
}

void replaceBacklog(benchmark::State& state, std::size_t waiting, std::size_t by) {
  EngineRig rig(1);
  const MotionPointer before = motionOf({0}, waiting, cyclesBetweenPoints, TimedCommand::REPLACE);
  const MotionPointer after = motionOf({0}, by, cyclesBetweenPoints, TimedCommand::REPLACE);
  Stopwatch watch;
  for ([[maybe_unused]] auto iteration : state) {
    rig.submit(before);
    rig.engine.pass();
    rig.submit(after);
    watch.start();
    rig.engine.pass();
    state.SetIterationTime(watch.stop());
  }
  countItems(state, 1);
}

/// As `Timelines` builds a push, for one axis, without a window.
class ReservePush {
 public:
  ReservePush() : rig_(1, Interpolation::linear, 0), stamps_(risingStamps(length, 1010, 20)) {
    reserve_.fill({length});
  }

  void push() {
    CommandList nodes;
    reserve_.lend(0, length, nodes);
    auto stamp = stamps_.begin();
    for (TimedCommand::commandItem& item : nodes) {
      item = {hal::AttrGeneric(1.0F), *stamp++};
    }
    rig_.timeline(0).pushTimedCommand(nodes, TimedCommand::MERGE);
  }
  void reachAll() { rig_.commands.run(stamps_.back() + 1, stamps_.back()); }
  void takeBack() { reserve_.takeBack(length); }

  static constexpr std::size_t length = 500;

 private:
  Rig rig_;
  const std::vector<unsigned int> stamps_;
  host::NodeReserve reserve_;
};

void pushFromReserve(benchmark::State& state) {
  ReservePush reserve;
  Stopwatch watch;
  for ([[maybe_unused]] auto iteration : state) {
    watch.start();
    reserve.push();
    state.SetIterationTime(watch.stop());
    reserve.reachAll();
    reserve.takeBack();
  }
  countItems(state, ReservePush::length);
}

void takeBackToReserve(benchmark::State& state) {
  ReservePush reserve;
  Stopwatch watch;
  for ([[maybe_unused]] auto iteration : state) {
    reserve.push();
    reserve.reachAll();
    watch.start();
    reserve.takeBack();
    state.SetIterationTime(watch.stop());
  }
  countItems(state, ReservePush::length);
}

/// Each axis reaches a point every so many cycles, as many of them in each cycle.
void loadProcessor(benchmark::State& state, std::size_t axes, decltype(&motionOf) motion) {
  constexpr std::size_t cycles = 2000;
  EngineRig rig(axes);
  for (std::size_t phase = 0; phase < cyclesBetweenPoints; ++phase) {
    std::vector<int> some;
    for (std::size_t axis = phase; axis < axes; axis += cyclesBetweenPoints) {
      some.push_back(static_cast<int>(axis));
    }
    rig.submit(
        motion(some, 2 * cycles / cyclesBetweenPoints, cyclesBetweenPoints, TimedCommand::MERGE),
        static_cast<std::int64_t>(phase));
  }
  rig.engine.pass();
  Stopwatch watch;
  const auto timed = [&watch](auto&& work) {
    watch.start();
    work();
    return watch.stop();
  };
  for ([[maybe_unused]] auto iteration : state) {
    double cycle = 0.0;
    double machine = 0.0;
    double pass = 0.0;
    for (std::size_t i = 0; i < cycles; ++i) {
      rig.wake();
      cycle += timed([&rig] { rig.engine.goOn(); });
      machine += timed([&rig] { rig.engine.machine().step(0.001); });
      pass += timed([&rig] { rig.engine.pass(); });
    }
    const double nsPerCycle = 1e9 / static_cast<double>(cycles);
    state.SetIterationTime(cycle + machine + pass);
    state.counters[percentCounter] = (cycle + machine + pass) * nsPerCycle / 1e6 * 100.0;
    state.counters["axis_ns"] = (cycle + pass) * nsPerCycle / static_cast<double>(axes);
    state.counters["cycle_ns"] = cycle * nsPerCycle;
    state.counters["machine_ns"] = machine * nsPerCycle;
    state.counters["pass_ns"] = pass * nsPerCycle;
  }
}

/// The median of a cycle of axes on their way, exchange included, in ns.
double cycleOnTheWay(std::size_t axes, host::GuardMode guard) {
  constexpr std::size_t cycles = 2000;
  EngineRig rig(axes, guard);
  rig.submit(motionOf(firstAxes(axes), 2, 2 * cycles, TimedCommand::MERGE));
  std::vector<double> durations;
  Stopwatch watch;
  for (std::size_t i = 0; i < cycles; ++i) {
    rig.engine.pass();
    rig.wake();
    watch.start();
    rig.engine.goOn();
    rig.engine.machine().step(0.001);
    durations.push_back(1e9 * watch.stop());
  }
  std::sort(durations.begin(), durations.end());
  return quantile(durations, 0.5);
}

/// What the guard adds to a cycle, each beside the same without it, one after the other.
void guardAxes(benchmark::State& state, std::size_t axes) {
  constexpr int repetitions = 10;
  for ([[maybe_unused]] auto iteration : state) {
    std::vector<double> costs;
    double cycle = 0.0;
    for (int i = 0; i < repetitions; ++i) {
      const double without = cycleOnTheWay(axes, host::GuardMode::off);
      cycle = cycleOnTheWay(axes, host::GuardMode::hold);
      costs.push_back(cycle - without);
    }
    std::sort(costs.begin(), costs.end());
    const double cost = quantile(costs, 0.5);
    constexpr double mostNs = 5.0;
    state.SetIterationTime(1e-9 * cycle);
    state.counters[nsCounter] = cost / static_cast<double>(axes);
    state.counters["most_ns"] = mostNs;
    state.counters["cycle_ns"] = cycle;
    state.counters["share_of_cycle_percent"] = 100.0 * cost / cycle;
  }
}

std::size_t bytesOnHeap() {
  const auto heap = mallinfo2();
  return heap.uordblks + heap.hblkhd;
}

/// What a point takes on the heap, of a single axis, so that nothing is shared: in its batch
/// until that was taken, and in the backlog from then on.
void holdPoints(benchmark::State& state, bool taken) {
  constexpr std::size_t points = 1'000'000;
  EngineRig rig(1);
  for ([[maybe_unused]] auto iteration : state) {
    const std::size_t before = bytesOnHeap();
    rig.submit(motionOf({0}, points, cyclesBetweenPoints, TimedCommand::MERGE));
    if (taken) {
      rig.engine.pass();
    }
    const std::size_t bytes = bytesOnHeap() - before;
    state.counters[bytesCounter] = static_cast<double>(bytes) / static_cast<double>(points);
    stop(rig);
    state.SetIterationTime(1e-3);
  }
}

/// How the axes get the points that they reach together. A cycle is the pass of the library
/// and the exchange with the drives.
enum class Feeding {
  steady,      ///< from backlogs that do not end
  runningDry,  ///< from batches whose last point is reached before the next one comes
  replaced,    ///< from batches that replace each other while most of their points wait
};

/// The moments are those of machine time, in cycles.
class TogetherFeed {
 public:
  TogetherFeed(EngineRig& rig, Feeding feeding, std::size_t cycles)
      : rig_(rig), feeding_(feeding), axes_(firstAxes(rig.engine.axes().size())) {
    const std::size_t points =
        feeding == Feeding::steady ? cycles / cyclesBetweenPoints + batchLength : batchLength;
    if (feeding == Feeding::replaced) {
      std::shuffle(axes_.begin(), axes_.end(), std::mt19937(1));
    }
    motion_ = motionOf(axes_, points, cyclesBetweenPoints,
                       feeding == Feeding::replaced ? TimedCommand::REPLACE : TimedCommand::MERGE);
    hasCycleEnded(0);
  }

  /// Called at the end of each cycle.
  void hasCycleEnded(std::size_t cycle) {
    if (isDue(cycle)) {
      rig_.submit(motion_, static_cast<std::int64_t>(cycle - cycle % cyclesBetweenPoints));
    }
    rig_.engine.pass();
  }

 private:
  /// More than a window holds.
  static constexpr std::size_t batchLength = 60;

  [[nodiscard]] bool isDue(std::size_t cycle) const {
    switch (feeding_) {
      case Feeding::steady:
        return cycle == 0;
      case Feeding::runningDry:
        return cycle % (batchLength * cyclesBetweenPoints) == 0;
      default:
        return cycle == 0 || cycle % 100 == 7;
    }
  }

  EngineRig& rig_;
  const Feeding feeding_;
  std::vector<int> axes_;
  MotionPointer motion_;
};

void reachTogether(benchmark::State& state, std::size_t axes, Feeding feeding, std::size_t cycles) {
  EngineRig rig(axes);
  rig.cycle();
  TogetherFeed feed(rig, feeding, cycles);
  std::vector<double> reaching;
  std::vector<double> others;
  Stopwatch watch;
  for ([[maybe_unused]] auto iteration : state) {
    for (std::size_t cycle = 1; cycle <= cycles; ++cycle) {
      rig.wake();
      watch.start();
      rig.engine.goOn();
      rig.engine.machine().step(0.001);
      const double duration = 1e9 * watch.stop();
      (cycle % cyclesBetweenPoints == 0 ? reaching : others).push_back(duration);
      feed.hasCycleEnded(cycle);
    }
    std::sort(reaching.begin(), reaching.end());
    std::sort(others.begin(), others.end());
    const double median = quantile(reaching, 0.5);
    state.SetIterationTime(1e-9 * median);
    state.counters[nsCounter] = median;
    state.counters["p50"] = median;
    state.counters["p99"] = quantile(reaching, 0.99);
    state.counters[maxCounter] = reaching.back();
    state.counters["none_p50"] = quantile(others, 0.5);
    state.counters["none_p99"] = quantile(others, 0.99);
  }
  if (rig.engine.axes().front().counts.reached != cycles / cyclesBetweenPoints) {
    state.SkipWithError("a point was not reached in its cycle");
  }
}

void addOnce(const std::string& name, std::function<void(benchmark::State&)> run) {
  add("engine/" + name, std::move(run), Timer::ownOnce);
}

void addTimed(const std::string& name, std::function<void(benchmark::State&)> run) {
  add("engine/" + name, std::move(run), Timer::own);
}

void addTogether() {
  for (const std::size_t axes : {10U, 100U, 1000U, 10000U}) {
    const std::size_t cycles = axes == 10000 ? 2000 : 4000;
    const auto addFeeding = [=](const std::string& name, Feeding feeding) {
      addOnce("together/" + std::to_string(axes) + name,
              [=](benchmark::State& state) { reachTogether(state, axes, feeding, cycles); });
    };
    addFeeding("/steady", Feeding::steady);
    addFeeding("/running_dry", Feeding::runningDry);
    addFeeding("/replaced", Feeding::replaced);
  }
}

}  // namespace

void addEngineBenchmarks() {
  addTimed("batch/500_points", [](benchmark::State& state) { handIn(state, 1, 500); });
  addTimed("batch/30_axes_x_10", [](benchmark::State& state) { handIn(state, 30, 10); });
  addTimed("batch/500_points/to_the_end", [](benchmark::State& state) { stream(state, 500); });
  addTimed("reserve/500_pushed", pushFromReserve);
  addTimed("reserve/500_taken_back", takeBackToReserve);
  addTimed("replace/10000_by_1", [](benchmark::State& state) { replaceBacklog(state, 10'000, 1); });
  addTimed("replace/10000_by_10000",
           [](benchmark::State& state) { replaceBacklog(state, 10'000, 10'000); });
  addOnce("share/1000_axes", [](benchmark::State& state) { loadProcessor(state, 1000, motionOf); });
  addOnce("share/100_axes/lines",
          [](benchmark::State& state) { loadProcessor(state, 100, motionOf); });
  addOnce("share/100_axes/curves",
          [](benchmark::State& state) { loadProcessor(state, 100, curvedMotionOf); });
  addOnce("guard/1000_axes", [](benchmark::State& state) { guardAxes(state, 1000); });
  addOnce("memory/in_batch", [](benchmark::State& state) { holdPoints(state, false); });
  addOnce("memory/in_backlog", [](benchmark::State& state) { holdPoints(state, true); });
  addTogether();
}

}  // namespace bench
