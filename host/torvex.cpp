#include "host/torvex.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <ctime>
#include <future>
#include <memory>

#include "host/nodepool.h"
#include "host/realtime.h"
#include "host/stopsignal.h"
#include "platform/zr/zrcriticalsectionwrite.h"
#include "registry/attrfullnamemanager.h"
#include "registry/brokermanager.h"
#include "registry/torvexmanager.h"

namespace {

constexpr std::int64_t nsPerMs = 1'000'000;
constexpr std::int64_t nsPerSecond = 1'000'000'000;
/// How long the measured values may take to settle after the last command.
constexpr std::int64_t longestSettlingMs = 2000;
/// Until the first cycle, for the threads to take their places.
constexpr std::int64_t startUpMs = 50;

std::int64_t monotonicNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * nsPerSecond + now.tv_nsec;
}

void sleepUntil(std::int64_t timeNs) {
  const timespec deadline{timeNs / nsPerSecond, timeNs % nsPerSecond};
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr) == EINTR) {
  }
}

std::int64_t lastTime(const host::Plan& plan) {
  std::int64_t lastMs = 0;
  for (const host::PlannedActuator& planned : plan.actuators) {
    lastMs = std::max(lastMs, planned.course.path.back().timeMs);
  }
  return lastMs;
}

std::vector<std::string> commandKeys(const host::MachineFile& machine, const host::Plan& plan) {
  std::vector<std::string> keys;
  for (const host::PlannedActuator& planned : plan.actuators) {
    keys.push_back(host::valueKey(machine.actuator(planned.index)));
  }
  return keys;
}

}  // namespace

Torvex::Torvex(const host::MachineFile& machine, const host::Plan& plan,
               const host::RunOptions& options)
    : schedule_(plan.schedule),
      options_(options),
      machine_(options.poolName, machine.description),
      framework_(options.preferenceDirectory),
      actuators_(movedActuators(machine, plan, machine_)),
      columns_(tracedColumns(actuators_)),
      lastItemMs_(lastTime(plan)),
      feeder_(plan, commandKeys(machine, plan), options.startTick),
      recording_(1 + columns_.size(),
                 (lastItemMs_ + longestSettlingMs) / plan.schedule.cycleMs + 1),
      latestCycleMs_(-std::int64_t{plan.schedule.cycleMs}),
      row_(1 + columns_.size()) {
  setBrokerManager(framework_.broker());
  setTorvexManager(this);
  setAttrFullNameManager(&names_);
  setTimedCommandManager(&commands_);
  names_.initNameList(0);
  commands_.initTimedCommand(0);
  findTimelines();
  host::warmNodePool(feeder_.mostQueued());
  feed(latestCycleMs_);
}

Torvex::~Torvex() {
  setTimedCommandManager(nullptr);
  setAttrFullNameManager(nullptr);
  setTorvexManager(nullptr);
  setBrokerManager(nullptr);
}

void Torvex::findTimelines() {
  for (std::size_t i = 0; i < actuators_.size(); ++i) {
    const int index = commands_.testActuatorName(feeder_.key(i));
    actuators_[i].timeline = &commands_.commandTable.at(static_cast<std::size_t>(index));
  }
}

void Torvex::run(const Progress& progress) {
  if (options_.clock == host::Clock::simulated) {
    runSimulated(progress);
  } else {
    runRealtime(progress);
  }
  recording_.addLast(row_);
}

void Torvex::runSimulated(const Progress& progress) {
  std::int64_t previousMs = latestCycleMs_;
  for (std::int64_t timeMs = 0;; timeMs += schedule_.cycleMs) {
    cycle(timeMs, previousMs);
    if (hasEnded(timeMs)) {
      return;
    }
    previousMs = timeMs;
    feed(timeMs);
    progress(timeMs);
  }
}

void Torvex::runRealtime(const Progress& progress) {
  const std::int64_t originNs = monotonicNs() + startUpMs * nsPerMs;
  const auto guarded = [this, originNs](const host::ThreadPlace& place, const char* name,
                                        void (Torvex::*drive)(std::int64_t)) {
    try {
      host::takePlace(place, name);
      (this->*drive)(originNs);
    } catch (...) {
      ended_ = true;
      throw;
    }
  };
  std::future<void> commandThread;
  std::future<void> cycleThread;
  // Whatever goes wrong here, the threads end before their futures wait for them.
  const std::unique_ptr<std::atomic<bool>, void (*)(std::atomic<bool>*)> endAtExit(
      &ended_, [](std::atomic<bool>* ended) { *ended = true; });
  const host::ThreadPlace& cyclePlace = options_.cyclePlace;
  commandThread = std::async(std::launch::async, guarded, host::placeBelow(cyclePlace), "commands",
                             &Torvex::driveFeeder);
  cycleThread = std::async(std::launch::async, guarded, cyclePlace, "cycle", &Torvex::driveCycles);
  constexpr std::int64_t progressNs = 50 * nsPerMs;
  while (cycleThread.wait_for(std::chrono::nanoseconds(progressNs)) != std::future_status::ready) {
    progress(latestCycleMs_);
  }
  ended_ = true;
  commandThread.get();
  cycleThread.get();
}

void Torvex::driveCycles(std::int64_t originNs) {
  const std::int64_t cycleNs = schedule_.cycleMs * nsPerMs;
  std::int64_t previousMs = latestCycleMs_;
  for (std::int64_t point = 0;;) {
    const std::int64_t plannedNs = originNs + point * cycleNs;
    sleepUntil(plannedNs);
    counts_.latencies.add(static_cast<std::uint64_t>(monotonicNs() - plannedNs));
    const std::int64_t timeMs = point * schedule_.cycleMs;
    cycle(timeMs, previousMs);
    if (hasEnded(timeMs)) {
      return;
    }
    previousMs = timeMs;
    const std::int64_t next = std::max(point + 1, (monotonicNs() - originNs) / cycleNs + 1);
    counts_.overruns += static_cast<std::uint64_t>(next - point - 1);
    point = next;
  }
}

/// Feeds in the middle between two cycles.
void Torvex::driveFeeder(std::int64_t originNs) {
  const std::int64_t cycleNs = schedule_.cycleMs * nsPerMs;
  while (!ended_) {
    const std::int64_t nextMiddle = (monotonicNs() - originNs + cycleNs / 2) / cycleNs;
    sleepUntil(originNs + nextMiddle * cycleNs + cycleNs / 2);
    feed(latestCycleMs_);
  }
}

void Torvex::feed(std::int64_t timeMs) {
  if (!allDelivered_) {
    feeder_.feed(commands_, timeMs);
    allDelivered_ = feeder_.allDelivered();
  }
}

void Torvex::cycle(std::int64_t timeMs, std::int64_t previousMs) {
  const std::int64_t beginNs = monotonicNs();
  noteMovesByOthers();
  commands_.run(stamp(timeMs), stamp(previousMs));
  machine_.step(static_cast<double>(timeMs - previousMs) / 1000.0);
  readBack(timeMs);
  ++counts_.cycles;
  counts_.durations.add(static_cast<std::uint64_t>(monotonicNs() - beginNs));
  writeDown();
  latestCycleMs_ = timeMs;
}

void Torvex::noteMovesByOthers() {
  for (host::MovedActuator& actuator : actuators_) {
    if (host::bitsIn(*actuator.command) != actuator.lastBits) {
      ++actuator.cyclesMovedByOthers;
    }
  }
}

void Torvex::readBack(std::int64_t timeMs) {
  for (host::MovedActuator& actuator : actuators_) {
    actuator.lastBits = host::bitsIn(*actuator.command);
  }
  row_[0] = static_cast<double>(timeMs);
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    row_[1 + i] = host::numberIn(*columns_[i].attribute);
  }
  recording_.add(row_);
}

void Torvex::writeDown() {
  if (trace_ == nullptr) {
    return;
  }
  if (options_.clock == host::Clock::simulated) {
    trace_->pushWaiting(row_);
  } else if (!trace_->push(row_)) {
    ++counts_.droppedTraceRows;
  }
}

std::uint32_t Torvex::stamp(std::int64_t timeMs) const {
  return options_.startTick + static_cast<std::uint32_t>(timeMs);
}

bool Torvex::hasEnded(std::int64_t timeMs) {
  if (ended_ || host::StopSignal::received() != 0) {
    return true;
  }
  // The time first: as long as it is early, no lock is taken.
  if (timeMs < lastItemMs_ || !allDelivered_ || !haveTimelinesRunOut()) {
    return false;
  }
  if (ranOutMs_ < 0) {
    ranOutMs_ = timeMs;
  }
  return hasSettled() || timeMs - ranOutMs_ >= longestSettlingMs;
}

/// Others may have queued commands beyond the motion.
bool Torvex::haveTimelinesRunOut() const {
  return std::all_of(actuators_.begin(), actuators_.end(), [](const auto& actuator) {
    const ZR::ZRCriticalSectionWrite section(actuator.timeline->mutex);
    return actuator.timeline->commandList.empty();
  });
}

bool Torvex::hasSettled() const {
  constexpr double settledShare = 0.1;
  return std::all_of(actuators_.begin(), actuators_.end(), [this](const auto& actuator) {
    return actuator.trackingError() <= settledShare * options_.tolerance;
  });
}
