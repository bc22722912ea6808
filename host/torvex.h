#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "attrfullname/attrfullname.h"
#include "host/commandline.h"
#include "host/feeder.h"
#include "host/histogram.h"
#include "host/input/jointtrajectory.h"
#include "host/input/urdf.h"
#include "host/schedule.h"
#include "host/trace.h"
#include "simulation/machine.h"
#include "timedcommandmanager/timedcommandmanager.h"

namespace host {

/// One joint of the motion, as the cycle sees it.
struct MovedJoint {
  /// How many samples of its commands are kept, spread over the motion.
  static constexpr std::size_t shapeSamples = 20;

  std::string name;
  int actuator = 0;
  const TimedCommand* timeline = nullptr;
  const hal::DeviceAttrGeneric* command = nullptr;
  const hal::DeviceAttrGeneric* measured = nullptr;
  float minimum = 0.0F;
  float maximum = 0.0F;
  /// The last point's value, within the limits.
  float finalTarget = 0.0F;
  /// What the command register held at the end of the latest cycle.
  float lastCommand = 0.0F;
  std::uint64_t cyclesMovedByOthers = 0;
  std::array<float, shapeSamples> shape{};
  std::size_t shapeFilled = 0;

  [[nodiscard]] double trackingError() const;
};

/// What the cycle counted.
struct CycleCount {
  std::uint64_t cycles = 0;
  /// Points of the grid that were passed over because a cycle took too long.
  std::uint64_t overruns = 0;
  std::uint64_t droppedTraceRows = 0;
  /// Without handing over the trace row, which may wait in simulated time.
  Histogram durations;
};

}  // namespace host

/// The reference host: a simulated machine and the library that drives it,
/// for one run of one motion.
class Torvex {
 public:
  /// Called now and then, outside the control cycle, with the time in
  /// milliseconds of the latest cycle.
  using Progress = std::function<void(std::int64_t timeMs)>;

  /// Starts everything up, ready for the first cycle. `trace` may be null.
  /// The arguments must outlive the object. Throws `simulation::Error`.
  Torvex(const host::Robot& robot, const host::Motion& motion, const host::Schedule& schedule,
         const host::RunOptions& options, host::Trace* trace);
  ~Torvex();

  Torvex(const Torvex&) = delete;
  Torvex& operator=(const Torvex&) = delete;

  /// Runs until every timeline has run out and the measured values have
  /// settled, or a signal asks to stop. Lets through what a cycle throws.
  void run(const Progress& progress);

  [[nodiscard]] const host::RunOptions& options() const { return options_; }
  [[nodiscard]] simulation::Machine& machine() { return machine_; }
  [[nodiscard]] const host::Feeder& feeder() const { return feeder_; }
  [[nodiscard]] const std::vector<host::MovedJoint>& joints() const { return joints_; }
  [[nodiscard]] const host::CycleCount& counts() const { return counts_; }

 private:
  void findTimelines();
  void warmNodePool();
  void runSimulated(const Progress& progress);
  void runRealtime(const Progress& progress);
  void driveCycles(std::int64_t originNs);
  void driveFeeder(std::int64_t originNs);

  void feed(std::int64_t timeMs);
  void cycle(std::int64_t timeMs, std::int64_t previousMs);
  void noteMovesByOthers();
  void readBack(std::int64_t timeMs);
  void traceRow(std::int64_t timeMs);
  [[nodiscard]] bool hasEnded(std::int64_t timeMs);
  [[nodiscard]] bool haveTimelinesRunOut() const;
  [[nodiscard]] bool hasSettled() const;

  const host::Schedule& schedule_;
  const host::RunOptions& options_;
  host::Trace* const trace_;

  simulation::Machine machine_;
  AttrFullName names_;
  TimedCommandManager commands_;
  std::vector<host::MovedJoint> joints_;
  host::Feeder feeder_;

  std::atomic<bool> allDelivered_{false};
  std::atomic<bool> ended_{false};
  std::atomic<std::int64_t> latestCycleMs_;
  std::int64_t ranOutMs_ = -1;
  std::vector<double> row_;
  host::CycleCount counts_;
};
