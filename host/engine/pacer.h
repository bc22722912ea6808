#pragma once

#include <cstdint>

namespace host {

/// What machine time does after the process was held up.
enum class Late {
  stand,    ///< goes on where it was
  catchUp,  ///< goes as far as it may in each cycle, until it has reached the clock
};

/// How machine time went along with the clock.
struct PaceCount {
  /// Points of the grid that were passed over because a cycle came or ended too late.
  std::uint64_t overruns = 0;
  /// How often the process was held up for more than two cycles, and how long in all.
  std::uint64_t stalls = 0;
  std::int64_t stalledMs = 0;
  /// Cycles for which machine time stood, because what follows was not handed over.
  std::uint64_t stands = 0;
};

/// Machine time: how far it goes in each cycle, in whole cycles.
///
/// A cycle that comes up to two cycles late goes on by the time that passed; after a longer
/// stall machine time goes on where it was. It never goes beyond a bound. No thread, no
/// clock, no lock of its own: the cycle tells it what the clock says.
class Pacer {
 public:
  Pacer(std::int64_t cycleMs, Late late) noexcept : cycleMs_(cycleMs), late_(late) {}

  /// A cycle is awake; the clock has come to this point of its grid, which begins at 0.
  void wake(std::int64_t clockCycle) noexcept;

  /// How far machine time may go now, in milliseconds; 0 when it has to stand.
  [[nodiscard]] std::int64_t stepMs(std::int64_t boundMs) const noexcept;
  /// Whether the bound keeps it from going as far as it should; who catches up goes as far
  /// as it may.
  [[nodiscard]] bool isHeld(std::int64_t stepMs) const noexcept {
    return late_ == Late::catchUp ? stepMs == 0 : stepMs < wantedCycles_ * cycleMs_;
  }

  /// Machine time goes on by this step, or stands.
  void go(std::int64_t stepMs) noexcept;

  /// Machine time of the latest cycle; one cycle before 0 at first.
  [[nodiscard]] std::int64_t timeMs() const noexcept { return timeMs_; }
  /// How far the clock's grid is ahead of machine time, in milliseconds.
  [[nodiscard]] std::int64_t lagMs() const noexcept { return clockCycle_ * cycleMs_ - timeMs_; }
  [[nodiscard]] const PaceCount& count() const noexcept { return count_; }

 private:
  const std::int64_t cycleMs_;
  const Late late_;
  std::int64_t timeMs_ = -cycleMs_;
  std::int64_t clockCycle_ = -1;
  std::int64_t wantedCycles_ = 0;
  PaceCount count_;
};

}  // namespace host
