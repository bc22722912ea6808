#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "host/base/words.h"
#include "host/input/machinemodel.h"
#include "host/motion/ramp.h"
#include "platform/hal/deviceattrgeneric.h"
#include "simulation/machine.h"

namespace host {

/// What is done about a step beyond the maximum velocity.
enum class GuardMode {
  hold,  ///< the axis takes the allowed step, ramps to rest and stays there
  warn,  ///< it is told
  off,   ///< nothing
};

constexpr Word<GuardMode> guardModeWords[] = {
    {"hold", GuardMode::hold}, {"warn", GuardMode::warn}, {"off", GuardMode::off}};

/// What the guard has done to one axis, for the command thread: written by the cycle, read
/// under the gate, save where it says otherwise.
struct GuardRecord {
  static constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();

  /// Cycles with a step that was too large. Any thread.
  std::atomic<std::uint64_t> touches{0};
  /// Machine time of the first one that the guard held; from then on the axis is its own.
  std::int64_t heldSinceMs = never;
  /// Machine time of the latest touch, and the speed it asked for, in units a second.
  std::int64_t latestMs = 0;
  double speed = 0.0;
  /// Whether the guard writes the register in each cycle.
  bool isRamping = false;
  /// Set by the command thread, under the gate: nothing waits for this axis any more.
  bool isCleared = false;

  [[nodiscard]] bool isHeld() const { return heldSinceMs != never; }
};

/// Sees to it that no register of an interpolating actuator moves in a cycle by more than its
/// maximum velocity, and that of what follows it, times the machine time that passed, whatever
/// asks for it: plus 1e-4 of that, and two units in the last place. Of the cycle, under the
/// gate; allocates nothing.
class Guard {
 public:
  explicit Guard(GuardMode mode) : mode_(mode) {}

  /// Before the first cycle. It brings to rest with the actuator's maximum acceleration, or as
  /// `rampToRest` has it where none is known. `before` is where each cycle leaves the bits that
  /// the register held when it began. The references must outlive the guard.
  void add(const MachineModel& machine, int actuator, hal::DeviceAttrGeneric& command,
           const std::int32_t& before, GuardRecord& record);

  /// The library has written; `stepMs` of machine time have passed since the cycle before.
  void check(std::int64_t timeMs, std::int64_t stepMs) noexcept;

 private:
  /// What every cycle looks at.
  struct Watched {
    hal::DeviceAttrGeneric* command;
    const std::int32_t* bitsBefore;
    /// In units a millisecond.
    double maximumVelocity;
    bool isRamping;

    [[nodiscard]] float before() const noexcept {
      hal::AttrGeneric record;
      record.asInt = *bitsBefore;
      return record.asFloat;
    }
  };
  /// The rest of it.
  struct Guarded {
    const simulation::Actuator* actuator;
    double maximumAcceleration;
    GuardRecord* record;
    /// What the guard wrote last.
    float written = 0.0F;
    /// Machine time at which the ramp began.
    std::int64_t rampMs = 0;
    Ramp ramp{};
  };

  void touch(std::size_t index, float wanted, std::int64_t timeMs, std::int64_t stepMs) noexcept;
  void goOn(std::size_t index, std::int64_t timeMs) noexcept;

  const GuardMode mode_;
  std::vector<Watched> watched_;
  std::vector<Guarded> guarded_;
};

}  // namespace host
