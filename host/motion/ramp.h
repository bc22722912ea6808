#pragma once

namespace host {

/// A way to rest: straight on in the present direction, at a constant deceleration.
///
/// Speeds never rise on it, so no step of it is larger than the one before.
struct Ramp {
  double from = 0.0;
  /// At its beginning, in units a millisecond.
  double velocity = 0.0;
  double durationMs = 0.0;

  /// Where it is that long after its beginning; at its end from there on.
  [[nodiscard]] double at(double elapsedMs) const noexcept;
  [[nodiscard]] double end() const noexcept { return at(durationMs); }
};

/// How long a ramp takes where no maximum acceleration is known.
constexpr double usualRampMs = 250.0;

/// The ramp of what moves at `velocity`, in units a millisecond. It takes `acceleration`, in
/// units a second squared, or `usualRampMs` where that is infinite; it leaves neither limit
/// behind it, even if that takes more. May be called in the control cycle.
Ramp rampToRest(double from, double velocity, double acceleration, double minimum,
                double maximum) noexcept;

}  // namespace host
