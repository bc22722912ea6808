#include "host/motion/curve.h"

#include <algorithm>
#include <cmath>

namespace host {
namespace {

/// The line from one point to the next.
struct Chord {
  double seconds = 0.0;
  double slope = 0.0;

  Chord(const Point& from, const Point& to)
      : seconds(static_cast<double>(to.timeMs - from.timeMs) / 1000.0),
        slope(seconds > 0.0 ? (double{to.value.asFloat} - double{from.value.asFloat}) / seconds
                            : 0.0) {}
};

/// The harmonic mean, weighted by the lengths, of the chords on both sides: at most three
/// times either of them. 0 where they do not rise or fall alike.
double slopeBetween(const Chord& before, const Chord& behind) {
  if (!(before.slope * behind.slope > 0.0)) {
    return 0.0;
  }
  const double weightBefore = 2.0 * behind.seconds + before.seconds;
  const double weightBehind = behind.seconds + 2.0 * before.seconds;
  return (weightBefore + weightBehind) /
         (weightBefore / before.slope + weightBehind / behind.slope);
}

/// Of the parabola through the first three points, as far as it rises or falls as the first
/// chord does.
double slopeAtFirst(const Chord& first, const Chord& second) {
  const double whole = first.seconds + second.seconds;
  const double slope =
      whole > 0.0 ? first.slope + (first.slope - second.slope) * first.seconds / whole : 0.0;
  const double steepest = 3.0 * first.slope;
  return std::clamp(slope, std::min(steepest, 0.0), std::max(steepest, 0.0));
}

double slopeAt(const std::vector<Point>& points, std::size_t i, bool fromRest) {
  if (i + 1 == points.size() || (i == 0 && fromRest)) {
    return 0.0;
  }
  const Chord behind(points[i], points[i + 1]);
  if (i > 0) {
    return slopeBetween(Chord(points[i - 1], points[i]), behind);
  }
  return points.size() == 2 ? behind.slope : slopeAtFirst(behind, Chord(points[1], points[2]));
}

}  // namespace

void addSlopes(const std::vector<Point>& points, bool fromRest, std::vector<Knot>& knots) {
  for (std::size_t i = 0; i < points.size(); ++i) {
    Knot& knot = knots[points[i].index];
    if (knot.known == Knot::Known::nothing) {
      knot.shape = Shape::smooth;
      knot.known = Knot::Known::velocity;
      knot.velocity = static_cast<float>(slopeAt(points, i, fromRest));
    }
  }
}

}  // namespace host
