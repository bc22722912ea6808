#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "host/motion/point.h"

namespace host {

/// How a segment runs to its end point. Actuators that do not interpolate know steps alone.
enum class Shape : std::uint8_t {
  linear,    ///< at a constant velocity
  cubic,     ///< with the velocities of both ends; a line where the start has none
  quintic,   ///< with the accelerations of both ends as well; else as `cubic`
  smooth,    ///< a cubic that goes beyond neither end
  approach,  ///< a quintic that ends at rest
  ramp,      ///< at a constant deceleration, which ends at rest; exact in each cycle
};

/// What a batch says of a point beside its value.
struct Knot {
  /// How many of the derivatives are known.
  enum class Known : std::uint8_t { nothing, velocity, acceleration };

  /// Of the segment that ends in the point.
  Shape shape = Shape::linear;
  /// For the segment that begins there.
  Known known = Known::nothing;
  /// Units a second, and a second squared.
  float velocity = 0.0F;
  float acceleration = 0.0F;
};

/// The knots of a batch for one axis. Does not change.
class Curve {
 public:
  /// One knot a point of the first round, or none where all are lines; later rounds leave out
  /// so many of them. `approaches`: the first point is approached from rest, in the time that
  /// there is.
  Curve(std::vector<Knot> knots, std::size_t leftOut, bool approaches)
      : knots_(std::move(knots)), leftOut_(leftOut), approaches_(approaches) {}

  [[nodiscard]] Knot at(std::size_t point) const {
    Knot knot = knots_.empty() ? Knot() : knots_[rowOf(point)];
    if (point == 0 && approaches_) {
      knot.shape = Shape::approach;
    }
    return knot;
  }

 private:
  [[nodiscard]] std::size_t rowOf(std::size_t point) const {
    return point < knots_.size() ? point
                                 : leftOut_ + (point - leftOut_) % (knots_.size() - leftOut_);
  }

  std::vector<Knot> knots_;
  std::size_t leftOut_;
  bool approaches_;
};

/// Gives all points that have no velocity, knots by their numbers, the slopes of a monotone
/// cubic through all of them: 0 at turns, at the last point and, `fromRest`, at the first.
void addSlopes(const std::vector<Point>& points, bool fromRest, std::vector<Knot>& knots);

}  // namespace host
