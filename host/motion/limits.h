#pragma once

#include "simulation/machine.h"

namespace host {

/// The largest magnitude that the library can interpolate over any span without an
/// intermediate result that is infinite in single precision.
constexpr float mostInterpolated = 1e28F;

/// The number that a command for this actuator means.
double commandedNumber(const simulation::Actuator& actuator, const hal::AttrGeneric& value);

/// The command register of the actuator before anything moves.
hal::AttrGeneric initialRecord(const simulation::Actuator& actuator);

/// Whether the register can go there: a finite number, and for an actuator that
/// interpolates no larger than `mostInterpolated`.
bool isCommandable(const simulation::Actuator& actuator, const hal::AttrGeneric& value);

/// The value moved into the actuator's limits; integers are compared as integers.
hal::AttrGeneric limited(const simulation::Actuator& actuator, const hal::AttrGeneric& value);

/// Whether two records command the same: every byte of them.
bool isSameValue(const hal::AttrGeneric& one, const hal::AttrGeneric& other);

/// A step is too large that is larger than the maximum velocity allows by more than this factor
/// and so many units in the last place.
constexpr double stepTolerance = 1.0001;
constexpr double stepUlps = 2.0;

/// A unit in the last place of the larger one. May be called in the control cycle.
double ulpOf(float one, float other) noexcept;

}  // namespace host
