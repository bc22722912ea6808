#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "host/engine/engine.h"

namespace bench {

using MotionPointer = std::shared_ptr<const host::CommandBatch>;

/// Every number from 0 on.
std::vector<int> firstAxes(std::size_t count);

/// A batch for these axes: every `stepMs` a point of each, the first after one step.
MotionPointer motionOf(const std::vector<int>& axes, std::size_t points, std::uint32_t stepMs,
                       TimedCommand::commandType mode);

/// The same with velocities, so that all its segments are cubic.
MotionPointer curvedMotionOf(const std::vector<int>& axes, std::size_t points, std::uint32_t stepMs,
                             TimedCommand::commandType mode);

/// The reference host's engine with a machine of joints, each with a sensor, in simulated
/// cycles of a millisecond. One thread does the work of both, in turn.
class EngineRig {
 public:
  explicit EngineRig(std::size_t axes, host::GuardMode guard = host::GuardMode::hold);

  /// Hands a batch in, whose times count from here. Throws where there is no room.
  void submit(MotionPointer motion, std::int64_t originMs);
  void submit(MotionPointer motion) { submit(std::move(motion), engine.timeMs()); }

  /// Has the clock come to the next cycle, and machine time be free to go on.
  void wake();
  /// The whole of a cycle: wakes, goes on and passes.
  void cycle();
  [[nodiscard]] const host::MachineModel& machine() const { return machine_; }

 private:
  host::MachineModel machine_;
  std::int64_t clockCycle_ = -1;

 public:
  host::Engine engine;
};

}  // namespace bench
