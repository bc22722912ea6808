#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "attrfullname/attrfullname.h"
#include "host/feeder.h"
#include "host/histogram.h"
#include "host/movedactuator.h"
#include "host/plan.h"
#include "host/recording.h"
#include "host/runoptions.h"
#include "host/trace.h"
#include "simulation/framework.h"
#include "simulation/machine.h"
#include "timedcommandmanager/timedcommandmanager.h"

namespace host {

/// What the cycle counted.
struct CycleCount {
  std::uint64_t cycles = 0;
  /// Points of the grid that were passed over because a cycle took too long.
  std::uint64_t overruns = 0;
  std::uint64_t droppedTraceRows = 0;
  /// Without handing over the trace row, which may wait in simulated time.
  Histogram durations;
  /// From the moment a cycle was planned for to its begin; nothing in simulated time.
  Histogram latencies;
};

}  // namespace host

/// The reference host: a simulated machine and the library that drives it,
/// for one run of one plan.
class Torvex {
 public:
  /// Called now and then, outside the control cycle, with the time in
  /// milliseconds of the latest cycle.
  using Progress = std::function<void(std::int64_t timeMs)>;

  /// Starts everything up, ready for the first cycle. The arguments must outlive
  /// the object. Throws `simulation::Error`.
  Torvex(const host::MachineFile& machine, const host::Plan& plan, const host::RunOptions& options);
  ~Torvex();

  Torvex(const Torvex&) = delete;
  Torvex& operator=(const Torvex&) = delete;

  /// Every cycle writes a row of `columns()`, behind the time, to this trace. Set
  /// before `run`, which must end before the trace does.
  void setTrace(host::Trace* trace) { trace_ = trace; }

  /// Runs until every timeline has run out and the measured values have
  /// settled, or a signal asks to stop. Lets through what a cycle throws.
  void run(const Progress& progress);

  [[nodiscard]] const host::RunOptions& options() const { return options_; }
  [[nodiscard]] simulation::Machine& machine() { return machine_; }
  [[nodiscard]] const host::Feeder& feeder() const { return feeder_; }
  [[nodiscard]] const std::vector<host::MovedActuator>& actuators() const { return actuators_; }
  [[nodiscard]] const std::vector<host::TracedColumn>& columns() const { return columns_; }
  /// Rows of the time in milliseconds and the columns.
  [[nodiscard]] const host::Recording& recording() const { return recording_; }
  [[nodiscard]] const host::CycleCount& counts() const { return counts_; }
  /// When the last command is due, in milliseconds.
  [[nodiscard]] std::int64_t lastItemMs() const { return lastItemMs_; }

 private:
  void findTimelines();
  void runSimulated(const Progress& progress);
  void runRealtime(const Progress& progress);
  void driveCycles(std::int64_t originNs);
  void driveFeeder(std::int64_t originNs);

  void feed(std::int64_t timeMs);
  void cycle(std::int64_t timeMs, std::int64_t previousMs);
  void noteMovesByOthers();
  void readBack(std::int64_t timeMs);
  void writeDown();
  [[nodiscard]] std::uint32_t stamp(std::int64_t timeMs) const;
  [[nodiscard]] bool hasEnded(std::int64_t timeMs);
  [[nodiscard]] bool haveTimelinesRunOut() const;
  [[nodiscard]] bool hasSettled() const;

  const host::Schedule& schedule_;
  const host::RunOptions& options_;
  host::Trace* trace_ = nullptr;

  simulation::Machine machine_;
  const simulation::Framework framework_;
  AttrFullName names_;
  TimedCommandManager commands_;
  std::vector<host::MovedActuator> actuators_;
  std::vector<host::TracedColumn> columns_;
  std::int64_t lastItemMs_ = 0;
  host::Feeder feeder_;
  host::Recording recording_;

  std::atomic<bool> allDelivered_{false};
  std::atomic<bool> ended_{false};
  std::atomic<std::int64_t> latestCycleMs_;
  std::int64_t ranOutMs_ = -1;
  std::vector<double> row_;
  host::CycleCount counts_;
};
