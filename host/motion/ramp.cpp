#include "host/motion/ramp.h"

#include <algorithm>
#include <cmath>

namespace host {

double Ramp::at(double elapsedMs) const noexcept {
  if (!(durationMs > 0.0)) {
    return from;
  }
  const double passed = std::clamp(elapsedMs, 0.0, durationMs);
  return from + velocity * passed * (1.0 - passed / (2.0 * durationMs));
}

Ramp rampToRest(double from, double velocity, double acceleration, double minimum,
                double maximum) noexcept {
  constexpr double perSecondSquared = 1e-6;
  const double speed = std::abs(velocity);
  if (!(speed > 0.0) || !std::isfinite(speed)) {
    return {from, 0.0, 0.0};
  }
  const double durationMs =
      std::isfinite(acceleration) ? speed / (acceleration * perSecondSquared) : usualRampMs;
  // What lies outside of the limits already may stay where it is.
  const double room = std::max(velocity > 0.0 ? maximum - from : from - minimum, 0.0);
  return {from, velocity, std::min(durationMs, 2.0 * room / speed)};
}

}  // namespace host
