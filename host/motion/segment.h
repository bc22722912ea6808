#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>

#include "host/motion/curve.h"
#include "host/motion/point.h"

namespace host {

/// Where the segment to the next point begins.
struct SegmentStart {
  std::int64_t timeMs = 0;
  double value = 0.0;
  /// Units a second, and a second squared.
  double velocity = 0.0;
  double acceleration = 0.0;
  /// What is known of both.
  Knot::Known known = Knot::Known::nothing;
  /// The axis was in motion when a batch took over: a smooth segment may overshoot.
  bool takesOver = false;
  /// By how much rounding makes value and velocity uncertain.
  double doubt = 0.0;
  double velocityDoubt = 0.0;
};

/// Starts at a moment: at rest; and in motion, by so much in the cycle before.
SegmentStart restingAt(std::int64_t timeMs, double value);
SegmentStart movingAt(std::int64_t timeMs, double value, double step, std::int64_t stepMs);
/// The start at a point, or at this time if that is later.
SegmentStart startAt(const Point& point, const Knot& knot, std::int64_t notBeforeMs);

/// The values that an actuator may take.
struct Range {
  double minimum = -std::numeric_limits<double>::infinity();
  double maximum = std::numeric_limits<double>::infinity();
};

/// The path from a start to a point: a polynomial of degree 1, 3 or 5. A ramp is one of degree 2,
/// which may end before the point is due, and rests from there.
///
/// It is kept by its Bezier ordinates: the first and the last are the ends' values, and it
/// goes beyond none of them. Where the end is not later than the start, it is a line.
class Segment {
 public:
  Segment(const SegmentStart& start, const Point& end, const Knot& knot);

  [[nodiscard]] bool isLine() const { return degree_ == 1; }
  [[nodiscard]] std::int64_t startMs() const { return startMs_; }
  [[nodiscard]] std::int64_t endMs() const { return endMs_; }
  [[nodiscard]] double valueAt(std::int64_t timeMs) const;
  /// The mean over the whole, in units a millisecond.
  [[nodiscard]] double velocity() const;

  /// Bounds of the magnitude of the value, and of its second derivative in units a second
  /// squared. The latter holds exactly for a cubic.
  [[nodiscard]] double largestMagnitude() const;
  [[nodiscard]] bool mayLeave(const Range& range) const;
  [[nodiscard]] double largestAcceleration() const;

  struct Extreme {
    double timeMs = 0.0;
    double amount = 0.0;
  };
  /// Where it lies lowest, highest, and where its velocity and its acceleration are largest, up
  /// to a time within it; the latter in units a second, and a second squared.
  [[nodiscard]] Extreme lowest(std::int64_t untilMs) const;
  [[nodiscard]] Extreme highest(std::int64_t untilMs) const;
  [[nodiscard]] Extreme fastest(std::int64_t untilMs) const;
  [[nodiscard]] Extreme mostAccelerated(std::int64_t untilMs) const;

  /// Where, from a time within it on, it first does not go on in this direction (1 or -1): at
  /// rest, or turning. None where it goes on to its end, and arrives there in motion.
  [[nodiscard]] std::optional<double> restFrom(std::int64_t fromMs, double direction) const;
  /// Each cycle is to have a sample of it.
  [[nodiscard]] bool isExact() const { return degree_ == 2; }

 private:
  static constexpr std::size_t mostOrdinates = 6;
  using Ordinates = std::array<double, mostOrdinates>;
  struct Roots {
    std::array<double, mostOrdinates> at{};
    std::size_t count = 0;
  };

  void bend(const SegmentStart& start, double velocity, double acceleration);
  [[nodiscard]] static Ordinates differences(const Ordinates& ordinates, std::size_t degree);
  [[nodiscard]] static double evaluate(Ordinates ordinates, std::size_t degree, double share);
  [[nodiscard]] static Roots rootsOf(const Ordinates& ordinates, std::size_t degree);
  template <typename IsMore>
  [[nodiscard]] static Extreme extreme(const Ordinates& ordinates, std::size_t degree,
                                       double untilShare, const IsMore& isMore);
  [[nodiscard]] double shareAt(double timeMs) const;
  [[nodiscard]] Extreme inTime(const Extreme& extreme) const;

  std::int64_t startMs_;
  std::int64_t endMs_;
  /// Of the polynomial.
  double durationMs_;
  std::size_t degree_ = 1;
  Ordinates ordinates_{};
};

/// A value on the path of a segment.
struct Sample {
  std::int64_t timeMs = 0;
  float value = 0.0F;
};

/// How many cycles may lie between two samples of a line whose values do not exceed this
/// magnitude.
///
/// The library goes on from what it wrote, in single precision. A rounding of half a unit
/// in the last place (ulp) each cycle, always the same way, leads at most n/(2e) ulp away
/// from the line over n cycles: each step aims at the end anew. With the rounding of the
/// samples themselves that is 0.5 + 0.184 n ulp, and shall be at most 1e-5, or 2 ulp where
/// those are more.
std::int64_t cyclesBetweenSamples(double magnitude);

/// The same for a curve: what its chords and their rounding lead away from it is at most
/// 1e-5 together, or 4 ulp where those are more. One cycle where that would take more than
/// one sample a cycle: then each cycle has its own sample, and strays by its rounding alone.
std::int64_t cyclesBetweenSamples(const Segment& curve, std::int64_t cycleMs);

/// The first sample of a segment that lies behind `afterMs` and before its end; none where
/// it is short. Those of a line are counted from its start, those of a curve lie on the
/// grid of the cycles, which has one at 0. They are moved into the range; a curve that may
/// leave it has one in each cycle, since the library goes on from samples and not from what
/// limits made of them.
std::optional<Sample> sampleAfter(const Segment& segment, std::int64_t afterMs,
                                  std::int64_t cycleMs, const Range& range = {});

/// What a cycle at this time makes of a segment, but for rounding: between samples it runs
/// straight. Within the segment.
double registerAt(const Segment& segment, std::int64_t timeMs, std::int64_t cycleMs,
                  const Range& range);
/// Where the straight piece ends on which it lies then.
std::int64_t straightUntil(const Segment& segment, std::int64_t timeMs, std::int64_t cycleMs,
                           const Range& range);
/// How far rounding may have led from there.
double strayAt(const Segment& segment, std::int64_t timeMs, std::int64_t cycleMs);

}  // namespace host
