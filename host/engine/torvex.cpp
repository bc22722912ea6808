#include "host/engine/torvex.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <memory>
#include <set>
#include <stdexcept>

#include "host/base/clocks.h"
#include "host/base/stopsignal.h"
#include "host/engine/realtime.h"

namespace {

/// How long the measured values may take to settle after the last command.
constexpr std::int64_t longestSettlingMs = 2000;
/// From the start to the first cycle: the threads apply their scheduling meanwhile.
constexpr std::int64_t startUpMs = 50;

std::string sensorColumn(const std::string& sensor) {
  static const std::string suffix = "/Sensor";
  const bool named = sensor.size() > suffix.size() &&
                     sensor.compare(sensor.size() - suffix.size(), suffix.size(), suffix) == 0;
  return (named ? sensor.substr(0, sensor.size() - suffix.size()) : sensor) + "/measured";
}

host::TracedValues tracedValues(host::Engine& engine, const host::MachineModel& machine,
                                const host::Plan& plan, const host::SessionOptions& options) {
  std::set<int> commanded;
  for (const host::Axis& axis : engine.axes()) {
    if (options.waitsForSignal) {
      commanded.insert(axis.index);
    }
  }
  commanded.insert(options.shownActuators.begin(), options.shownActuators.end());
  for (const host::ScheduledBatch& batch : plan.batches) {
    if (!batch.commands->isStop) {
      commanded.insert(batch.commands->actuators.begin(), batch.commands->actuators.end());
    }
  }
  host::TracedValues traced;
  std::vector<host::TracedColumn>& columns = traced.columns;
  std::set<const hal::DeviceAttrGeneric*> shown;
  for (const int actuator : commanded) {
    const host::Axis& axis = engine.axes()[static_cast<std::size_t>(actuator)];
    host::ShownAxis& added = traced.axes.emplace_back(host::ShownAxis{axis, columns.size(), {}});
    columns.push_back({axis.actuator.name + "/command", axis.command});
    if (axis.measured != nullptr) {
      added.measuredColumn = columns.size();
      columns.push_back({axis.actuator.name + "/measured", axis.measured});
      shown.insert(axis.measured);
    }
  }
  int sensor = 0;
  for (const simulation::Sensor& described : machine.description.sensors) {
    const hal::DeviceAttrGeneric& value = engine.machine().sensorValue(sensor++);
    if (shown.count(&value) == 0) {
      columns.push_back({sensorColumn(described.name), &value});
    }
  }
  return traced;
}

host::AxisResult axisResult(const host::ShownAxis& shown) {
  const host::Axis& axis = shown.axis;
  host::AxisResult result;
  result.actuator = axis.actuator;
  result.index = axis.index;
  result.counts = axis.counts;
  result.counts.cleared -= axis.leftAtEnd;
  result.externalWrites = axis.externalWrites;
  result.isHeld = axis.guard.isHeld();
  result.command.asInt = host::bitsIn(*axis.command);
  result.measured = axis.measuredValue();
  result.target = axis.target;
  const bool isLastReached = axis.backlog.empty() || axis.backlog.isStopping();
  result.last = axis.lastLeft ? axis.lastLeft : isLastReached ? axis.target : axis.backlog.last();
  result.commandColumn = shown.commandColumn;
  result.measuredColumn = shown.measuredColumn;
  return result;
}

}  // namespace

Torvex::Torvex(const host::MachineModel& machine, const host::Plan& plan,
               const host::SessionOptions& options)
    : plan_(plan),
      engine_(machine, plan.schedule.cycleMs, options, this),
      traced_(tracedValues(engine_, machine, plan, options)),
      lastItemMs_(lastDueMs(plan)),
      result_(options,
              host::SampleHistory(traced_.columns.size(),
                                  (lastItemMs_ + longestSettlingMs) / plan.schedule.cycleMs + 1)),
      latestCycleMs_(engine_.timeMs()),
      row_(host::rowTimes + traced_.columns.size()) {
  for (const host::ScheduledBatch& batch : plan.batches) {
    if (!engine_.submit(batch)) {
      throw std::runtime_error("the motions hold more batches or points than can wait");
    }
  }
  conclude();
}

void Torvex::ownPlan(const std::string& name) {
  std::vector<host::Streamer::Order> orders;
  for (const host::ScheduledBatch& batch : plan_.batches) {
    orders.push_back({batch, static_cast<std::uint32_t>(orders.size())});
  }
  engine_.desk().adopt(name, orders);
}

void Torvex::addColumns(const std::vector<host::TracedColumn>& columns) {
  for (const host::TracedColumn& column : columns) {
    further_.push_back(column.attribute);
  }
  row_.resize(row_.size() + columns.size());
}

std::vector<std::string> Torvex::columnNames() const {
  std::vector<std::string> names;
  for (const host::TracedColumn& column : traced_.columns) {
    names.push_back(column.name);
  }
  return names;
}

void Torvex::run(const Progress& progress) {
  engine_.start();
  if (result_.session.clock == host::Clock::simulated) {
    runSimulated(progress);
  } else {
    runRealtime(progress);
  }
  result_.history.addLast(row_);
  conclude();
}

void Torvex::beginReplay(const std::vector<std::size_t>& nodes) {
  engine_.start(nodes);
}

bool Torvex::replayCycle(const std::vector<host::JournalEntry>& entries, std::int64_t timeMs) {
  for (const host::JournalEntry& entry : entries) {
    engine_.follow(entry);
  }
  engine_.reach(timeMs);
  engine_.pass();
  engine_.wake(timeMs / cycleMs());
  cycle();
  return engine_.timeMs() == timeMs;
}

void Torvex::endReplay() {
  engine_.pass();
  conclude();
}

/// Commands and cycle take turns, so machine time never has to stand.
void Torvex::runSimulated(const Progress& progress) {
  for (std::int64_t clockCycle = 0;; ++clockCycle) {
    engine_.wake(clockCycle);
    constexpr int mostPasses = 100'000;
    for (int passes = 0; !engine_.canGoOn(); ++passes) {
      if (passes == mostPasses) {
        throw std::logic_error("machine time does not advance");
      }
      engine_.pass();
    }
    cycle();
    engine_.pass();
    if (hasEnded()) {
      return;
    }
    progress(engine_.timeMs());
  }
}

void Torvex::runRealtime(const Progress& progress) {
  const std::int64_t originNs = host::bootNs() + startUpMs * host::nsPerMs;
  originNs_ = originNs;
  const auto guarded = [this, originNs](const host::ThreadScheduling& scheduling, const char* name,
                                        void (Torvex::*drive)(std::int64_t)) {
    try {
      host::applyScheduling(scheduling, name);
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
  const host::ThreadScheduling& cycleScheduling = result_.session.cycleScheduling;
  commandThread = std::async(std::launch::async, guarded, host::schedulingBelow(cycleScheduling),
                             "commands", &Torvex::driveCommands);
  cycleThread =
      std::async(std::launch::async, guarded, cycleScheduling, "cycle", &Torvex::driveCycles);
  constexpr std::int64_t progressNs = 50 * host::nsPerMs;
  while (cycleThread.wait_for(std::chrono::nanoseconds(progressNs)) != std::future_status::ready) {
    progress(latestCycleMs_);
  }
  ended_ = true;
  commandThread.get();
  cycleThread.get();
  tellDropped();
  engine_.pass(host::bootNs() / host::nsPerMs);
}

void Torvex::driveCycles(std::int64_t originNs) {
  const std::int64_t cycleNs = plan_.schedule.cycleMs * host::nsPerMs;
  const auto gridPoint = [&] { return (host::bootNs() - originNs) / cycleNs; };
  for (std::int64_t point = 0;;) {
    const std::int64_t plannedNs = originNs + point * cycleNs;
    host::sleepUntil(plannedNs);
    result_.counts.latencies.add(static_cast<std::uint64_t>(host::bootNs() - plannedNs));
    point = std::max(point, gridPoint());
    engine_.wake(point);
    waitForCommands(originNs + point * cycleNs + cycleNs / 2);
    cycle();
    if (hasEnded()) {
      return;
    }
    point = std::max(point + 1, gridPoint() + 1);
  }
}

/// In short steps, and never spinning: both threads may share a processor.
void Torvex::waitForCommands(std::int64_t untilNs) {
  constexpr std::int64_t stepNs = 50'000;
  while (!engine_.canGoOn() && !ended_ && host::bootNs() < untilNs) {
    host::sleepUntil(host::bootNs() + stepNs);
  }
}

/// In the middle between two cycles.
void Torvex::driveCommands(std::int64_t originNs) {
  const std::int64_t cycleNs = plan_.schedule.cycleMs * host::nsPerMs;
  while (!ended_) {
    const std::int64_t nextMiddle = (host::bootNs() - originNs + cycleNs / 2) / cycleNs;
    host::sleepUntil(originNs + nextMiddle * cycleNs + cycleNs / 2);
    if (host::StopSignal::received() != 0) {
      engine_.end();
    }
    tellDropped();
    engine_.pass(host::bootNs() / host::nsPerMs);
  }
}

void Torvex::cycle() {
  const std::int64_t beginNs = host::bootNs();
  const std::int64_t stepMs = engine_.goOn();
  if (stepMs == 0) {
    return;
  }
  engine_.machine().step(host::inSeconds(stepMs));
  engine_.machine().endCycle(engine_.timeMs());
  readBack();
  if (cycles_ != nullptr) {
    cycles_->add(engine_.timeMs());
  }
  ++result_.counts.cycles;
  result_.counts.durations.add(static_cast<std::uint64_t>(host::bootNs() - beginNs));
  writeDown();
  latestCycleMs_ = engine_.timeMs();
}

void Torvex::readBack() {
  const std::int64_t timeMs = engine_.timeMs();
  row_[0] = static_cast<double>(timeMs);
  row_[1] = static_cast<double>(timeMs - std::int64_t{plan_.schedule.approachMs});
  for (std::size_t i = 0; i < traced_.columns.size(); ++i) {
    row_[host::rowTimes + i] = host::numberIn(*traced_.columns[i].attribute);
  }
  for (std::size_t i = 0; i < further_.size(); ++i) {
    row_[host::rowTimes + traced_.columns.size() + i] = host::numberIn(*further_[i]);
  }
  result_.history.add(row_);
}

void Torvex::writeDown() {
  for (const RowOutput& output : outputs_) {
    if (result_.session.clock == host::Clock::simulated) {
      output.rows.pushWaiting(row_);
    } else {
      output.rows.push(row_);
    }
  }
}

/// On the command thread.
void Torvex::tellDropped() {
  for (RowOutput& output : outputs_) {
    const std::uint64_t dropped = output.rows.dropped();
    if (dropped > output.droppedTold) {
      host::Event event{host::EventKind::droppedRows};
      event.count = dropped - std::exchange(output.droppedTold, dropped);
      event.text = output.name;
      engine_.desk().note(std::move(event));
    }
  }
}

void Torvex::conclude() {
  result_.pace = engine_.pace();
  result_.durationMs = engine_.timeMs();
  result_.axes.clear();
  for (const host::ShownAxis& shown : traced_.axes) {
    result_.axes.push_back(axisResult(shown));
  }
}

bool Torvex::hasEnded() {
  const bool isSimulated = result_.session.clock == host::Clock::simulated;
  if (ended_ || host::StopSignal::isRepeated() ||
      (isSimulated && host::StopSignal::received() != 0)) {
    return true;
  }
  if (!engine_.isIdle()) {
    return false;
  }
  if (host::StopSignal::received() != 0) {
    return true;
  }
  if (result_.session.waitsForSignal) {
    return false;
  }
  const std::int64_t timeMs = engine_.timeMs();
  if (idleSinceMs_ < 0) {
    idleSinceMs_ = timeMs;
  }
  return hasSettled() || timeMs - idleSinceMs_ >= longestSettlingMs;
}

bool Torvex::hasSettled() const {
  constexpr double settledShare = 0.1;
  return std::all_of(
      traced_.axes.begin(), traced_.axes.end(), [this](const host::ShownAxis& shown) {
        return shown.axis.trackingError() <= settledShare * result_.session.tolerance;
      });
}
