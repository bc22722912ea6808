#include "host/torvex.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>
#include <future>
#include <memory>

#include "host/stopsignal.h"
#include "platform/zr/zrcriticalsectionwrite.h"
#include "registry/attrfullnamemanager.h"
#include "registry/torvexmanager.h"

namespace {

constexpr std::int64_t nsPerMs = 1'000'000;
constexpr std::int64_t nsPerSecond = 1'000'000'000;
/// How long the measured values may take to settle after the last command.
constexpr std::int64_t longestSettlingMs = 2000;

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

std::uint32_t bitsOf(float value) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

std::vector<host::MovedJoint> movedJoints(const host::Robot& robot, const host::Motion& motion,
                                          const simulation::Machine& machine) {
  std::vector<host::MovedJoint> joints;
  for (std::size_t column = 0; column < motion.actuators.size(); ++column) {
    host::MovedJoint joint;
    joint.actuator = motion.actuators[column];
    const auto& actuator = robot.machine.actuators[static_cast<std::size_t>(joint.actuator)];
    joint.name = actuator.name;
    joint.command = &machine.actuatorValue(joint.actuator);
    joint.measured = &machine.sensorValue(joint.actuator);
    joint.minimum = actuator.minimum;
    joint.maximum = actuator.maximum;
    joint.finalTarget = std::clamp(motion.position(motion.times.size() - 1, column),
                                   actuator.minimum, actuator.maximum);
    joint.lastCommand = joint.command->loadFloat();
    joints.push_back(std::move(joint));
  }
  return joints;
}

/// The full key: a joint's name may itself look like one.
std::string commandKey(const host::MovedJoint& joint) {
  return "Device/SubDeviceList/" + joint.name + "/Value";
}

std::vector<host::FedColumn> fedColumns(const std::vector<host::MovedJoint>& joints) {
  std::vector<host::FedColumn> columns;
  for (const host::MovedJoint& joint : joints) {
    columns.push_back({commandKey(joint), joint.lastCommand, joint.minimum, joint.maximum});
  }
  return columns;
}

}  // namespace

double host::MovedJoint::trackingError() const {
  return std::abs(static_cast<double>(measured->loadFloat()) -
                  static_cast<double>(command->loadFloat()));
}

Torvex::Torvex(const host::Robot& robot, const host::Motion& motion, const host::Schedule& schedule,
               const host::RunOptions& options, host::Trace* trace)
    : schedule_(schedule),
      options_(options),
      trace_(trace),
      machine_(options.poolName, robot.machine),
      joints_(movedJoints(robot, motion, machine_)),
      feeder_(motion, schedule, fedColumns(joints_)),
      latestCycleMs_(-std::int64_t{schedule.cycleMs}),
      row_(1 + 2 * joints_.size()) {
  setTorvexManager(this);
  setAttrFullNameManager(&names_);
  setTimedCommandManager(&commands_);
  names_.initNameList(0);
  commands_.initTimedCommand(0);
  findTimelines();
  warmNodePool();
  feed(latestCycleMs_);
}

Torvex::~Torvex() {
  setTimedCommandManager(nullptr);
  setAttrFullNameManager(nullptr);
  setTorvexManager(nullptr);
}

void Torvex::findTimelines() {
  for (host::MovedJoint& joint : joints_) {
    const int index = commands_.testActuatorName(commandKey(joint));
    joint.timeline = &commands_.commandTable.at(static_cast<std::size_t>(index));
  }
}

// Growing later would put new nodes below old ones, and every node that a cycle
// returns would then be searched for among them.
void Torvex::warmNodePool() {
  const std::size_t mostQueued = (joints_.size() + 1) * host::windowItems;
  CommandList nodes;
  for (std::size_t i = 0; i < mostQueued; ++i) {
    nodes.emplace_back();
  }
  while (!nodes.empty()) {
    nodes.pop_back();
  }
}

void Torvex::run(const Progress& progress) {
  if (options_.clock == host::Clock::simulated) {
    runSimulated(progress);
  } else {
    runRealtime(progress);
  }
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
  const std::int64_t originNs = monotonicNs() + schedule_.cycleMs * nsPerMs;
  const auto guarded = [this, originNs](void (Torvex::*drive)(std::int64_t)) {
    try {
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
  commandThread = std::async(std::launch::async, guarded, &Torvex::driveFeeder);
  cycleThread = std::async(std::launch::async, guarded, &Torvex::driveCycles);
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
    sleepUntil(originNs + point * cycleNs);
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
  commands_.run(schedule_.stamp(timeMs), schedule_.stamp(previousMs));
  machine_.step(static_cast<double>(timeMs - previousMs) / 1000.0);
  readBack(timeMs);
  ++counts_.cycles;
  counts_.durations.add(static_cast<std::uint64_t>(monotonicNs() - beginNs));
  if (trace_ != nullptr) {
    traceRow(timeMs);
  }
  latestCycleMs_ = timeMs;
}

void Torvex::noteMovesByOthers() {
  for (host::MovedJoint& joint : joints_) {
    if (bitsOf(joint.command->loadFloat()) != bitsOf(joint.lastCommand)) {
      ++joint.cyclesMovedByOthers;
    }
  }
}

void Torvex::readBack(std::int64_t timeMs) {
  const std::int64_t sample = timeMs * static_cast<std::int64_t>(host::MovedJoint::shapeSamples) /
                              (feeder_.lastItemMs() + 1);
  for (host::MovedJoint& joint : joints_) {
    joint.lastCommand = joint.command->loadFloat();
    while (joint.shapeFilled < joint.shape.size() &&
           static_cast<std::int64_t>(joint.shapeFilled) <= sample) {
      joint.shape[joint.shapeFilled++] = joint.lastCommand;
    }
  }
}

void Torvex::traceRow(std::int64_t timeMs) {
  row_[0] = static_cast<double>(timeMs);
  for (std::size_t i = 0; i < joints_.size(); ++i) {
    row_[1 + 2 * i] = joints_[i].lastCommand;
    row_[2 + 2 * i] = joints_[i].measured->loadFloat();
  }
  if (options_.clock == host::Clock::simulated) {
    trace_->pushWaiting(row_);
  } else if (!trace_->push(row_)) {
    ++counts_.droppedTraceRows;
  }
}

bool Torvex::hasEnded(std::int64_t timeMs) {
  if (ended_ || host::StopSignal::received() != 0) {
    return true;
  }
  // The time first: as long as it is early, no lock is taken.
  if (timeMs < feeder_.lastItemMs() || !allDelivered_ || !haveTimelinesRunOut()) {
    return false;
  }
  if (ranOutMs_ < 0) {
    ranOutMs_ = timeMs;
  }
  return hasSettled() || timeMs - ranOutMs_ >= longestSettlingMs;
}

/// Others may have queued commands beyond the motion.
bool Torvex::haveTimelinesRunOut() const {
  return std::all_of(joints_.begin(), joints_.end(), [](const host::MovedJoint& joint) {
    const ZR::ZRCriticalSectionWrite section(joint.timeline->mutex);
    return joint.timeline->commandList.empty();
  });
}

bool Torvex::hasSettled() const {
  constexpr double settledShare = 0.1;
  return std::all_of(joints_.begin(), joints_.end(), [this](const host::MovedJoint& joint) {
    return joint.trackingError() <= settledShare * options_.tolerance;
  });
}
