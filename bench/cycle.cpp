// A cycle of actuators: ns for each of them.

#include <deque>
#include <string>

#include "bench/benchmarks.h"
#include "bench/rig.h"
#include "bench/stopwatch.h"
#include "bench/vectortimeline.h"
#include "platform/zr/zrcriticalsectionwrite.h"

namespace bench {

namespace {

/// Beyond every cycle that is measured.
constexpr unsigned int farAhead = 0x30000000;

enum class Situation { idle, onTheWay, waitingStep, consuming };

Interpolation interpolationOf(Situation situation) {
  return situation == Situation::waitingStep ? Interpolation::step : Interpolation::linear;
}

/// The timelines of a table, as the library runs them.
class Torvex {
 public:
  explicit Torvex(Rig& rig, Situation /*situation*/) : rig_(rig) {}

  void push(unsigned int time) {
    for (TimedCommand* timeline : rig_.commands.actuatorCommands) {
      CommandList commands;
      commands.emplace_back(hal::AttrGeneric(1.0F), time);
      timeline->pushTimedCommand(commands, TimedCommand::MERGE);
    }
  }
  void run(unsigned int time) { rig_.commands.run(time, time - 1); }

 private:
  Rig& rig_;
};

class Vectors {
 public:
  Vectors(Rig& rig, Situation situation) {
    for (const TimedCommand* timeline : rig.commands.actuatorCommands) {
      timelines_.emplace_back(timeline->subDeviceAccessor, interpolationOf(situation));
    }
  }

  void push(unsigned int time) {
    for (VectorTimeline& timeline : timelines_) {
      std::vector<VectorTimeline::Point> points{{hal::AttrGeneric(1.0F), time}};
      timeline.push(points, TimedCommand::MERGE, VectorTimeline::Sorting::whenNeeded);
    }
  }
  void run(unsigned int time) {
    for (VectorTimeline& timeline : timelines_) {
      timeline.run(time, time - 1);
    }
  }

 private:
  std::deque<VectorTimeline> timelines_;
};

/// The least that moves an actuator along a line.
class Segments {
 public:
  explicit Segments(Rig& rig) {
    for (const TimedCommand* timeline : rig.commands.actuatorCommands) {
      segments_.push_back({timeline->subDeviceAccessor, 0.0F, 1.0F, farAhead});
    }
  }

  void run(unsigned int time) {
    for (Segment& segment : segments_) {
      advance(segment, time);
    }
  }
  void runLocked(unsigned int time, const boost::shared_ptr<ZR::ZRMutexRW>& lock) {
    for (Segment& segment : segments_) {
      const ZR::ZRCriticalSectionWrite section(lock);
      advance(segment, time);
    }
  }

 private:
  struct Segment {
    hal::SubDeviceAccessor actuator;
    float current;
    float target;
    unsigned int end;
  };

  static void advance(Segment& segment, unsigned int time) {
    if (!(segment.actuator.getValueFloat() == segment.current)) {
      segment.current = segment.actuator.getValueFloat();
    }
    const auto span = static_cast<float>(static_cast<int>(segment.end - (time - 1)));
    const float value = (segment.target - segment.current) / span + segment.current;
    segment.current = segment.actuator.limitMinMaxFloat(value);
    segment.actuator.setValueFloat(segment.current);
  }

  std::vector<Segment> segments_;
};

/// One item arrives and one is reached, in each cycle; the arrival is not timed.
template <typename Timelines>
void consume(benchmark::State& state, Timelines& timelines) {
  unsigned int time = 1;
  timelines.push(time);
  Stopwatch watch;
  for ([[maybe_unused]] auto iteration : state) {
    timelines.push(time + 1);
    watch.start();
    timelines.run(time);
    state.SetIterationTime(watch.stop());
    ++time;
  }
}

template <typename Timelines>
void runCycles(benchmark::State& state, std::size_t actuators, Situation situation) {
  Rig rig(actuators, interpolationOf(situation), 2 * actuators + 1);
  Timelines timelines(rig, situation);
  if (situation == Situation::consuming) {
    consume(state, timelines);
  } else {
    if (situation != Situation::idle) {
      timelines.push(farAhead);
    }
    unsigned int time = 1;
    for ([[maybe_unused]] auto iteration : state) {
      timelines.run(time++);
    }
  }
  countItems(state, static_cast<double>(actuators));
}

void runFloor(benchmark::State& state, std::size_t actuators) {
  Rig rig(actuators, Interpolation::linear, 0);
  Segments segments(rig);
  unsigned int time = 1;
  for ([[maybe_unused]] auto iteration : state) {
    segments.run(time++);
  }
  countItems(state, static_cast<double>(actuators));
}

void runLockedFloor(benchmark::State& state, std::size_t actuators) {
  Rig rig(actuators, Interpolation::linear, 0);
  Segments segments(rig);
  const auto lock = ZR::ZRMutexRW::createZRMutexRW();
  unsigned int time = 1;
  for ([[maybe_unused]] auto iteration : state) {
    segments.runLocked(time++, lock);
  }
  countItems(state, static_cast<double>(actuators));
}

void addSituation(const std::string& name, Situation situation, std::size_t actuators) {
  const auto addWhose = [&](const char* whose, auto run) {
    add(
        name + whose, [=](benchmark::State& state) { run(state, actuators, situation); },
        situation == Situation::consuming ? Timer::own : Timer::library);
  };
  addWhose("/torvex", runCycles<Torvex>);
  addWhose("/vector", runCycles<Vectors>);
}

}  // namespace

void addCycleBenchmarks() {
  for (const std::size_t actuators : {1U, 10U, 100U, 1000U}) {
    const std::string group = "cycle/" + std::to_string(actuators);
    addSituation(group + "/idle", Situation::idle, actuators);
    addSituation(group + "/on_the_way", Situation::onTheWay, actuators);
    addSituation(group + "/waiting_step", Situation::waitingStep, actuators);
    addSituation(group + "/consuming", Situation::consuming, actuators);
    add(group + "/floor", [=](benchmark::State& state) { runFloor(state, actuators); });
    add(group + "/floor_with_lock",
        [=](benchmark::State& state) { runLockedFloor(state, actuators); });
  }
}

}  // namespace bench
