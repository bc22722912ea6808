#include "host/motion/segment.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace host {
namespace {

double ulpOf(double magnitude) {
  const auto value = static_cast<float>(magnitude);
  return double{std::nextafter(value, std::numeric_limits<float>::infinity())} - double{value};
}

constexpr std::int64_t mostCyclesBetween = 200;
constexpr double ulpsPerCycle = 0.19;
constexpr double ownRounding = 0.5;

/// How many cycles may go by until rounding has led so many ulp away.
std::int64_t cyclesWithin(double ulps) {
  const double cycles = (ulps - ownRounding) / ulpsPerCycle;
  return static_cast<std::int64_t>(std::min(cycles, static_cast<double>(mostCyclesBetween)));
}

/// As much of a velocity as a cubic over this difference can have at an end and still rise
/// or fall all the way.
double monotone(double velocity, double difference) {
  const double steepest = 3.0 * difference;
  return std::clamp(velocity, std::min(steepest, 0.0), std::max(steepest, 0.0));
}

/// Where the samples of a segment may lie.
struct Samples {
  std::int64_t firstMs;
  std::int64_t distanceMs;

  Samples(const Segment& segment, std::int64_t cycleMs, const Range& range)
      : firstMs(segment.isLine() ? segment.startMs() : 0),
        distanceMs(cycleMs * (segment.isLine() ? cyclesBetweenSamples(segment.largestMagnitude())
                              : segment.isExact() || segment.mayLeave(range)
                                  ? 1
                                  : cyclesBetweenSamples(segment, cycleMs))) {}
  /// The last one up to a time, or the first.
  [[nodiscard]] std::int64_t before(std::int64_t timeMs) const {
    return firstMs + std::max<std::int64_t>(timeMs - firstMs, 0) / distanceMs * distanceMs;
  }
};

double heldAt(const Segment& segment, std::int64_t timeMs, const Range& range) {
  return std::clamp(segment.valueAt(timeMs), range.minimum, range.maximum);
}

Shape shapeOf(const SegmentStart& start, const Point& end, const Knot& knot) {
  if (end.timeMs <= start.timeMs) {
    return Shape::linear;
  }
  const bool endsAlike = knot.shape == Shape::cubic || knot.shape == Shape::quintic;
  if (endsAlike && start.known == Knot::Known::nothing) {
    return Shape::linear;
  }
  return knot.shape == Shape::quintic && start.known == Knot::Known::velocity ? Shape::cubic
                                                                              : knot.shape;
}

std::size_t degreeOf(Shape shape) {
  switch (shape) {
    case Shape::linear:
      return 1;
    case Shape::ramp:
      return 2;
    case Shape::cubic:
    case Shape::smooth:
      return 3;
    default:
      return 5;
  }
}

}  // namespace

SegmentStart restingAt(std::int64_t timeMs, double value) {
  return {timeMs, value, 0.0, 0.0, Knot::Known::acceleration, false};
}

SegmentStart movingAt(std::int64_t timeMs, double value, double step, std::int64_t stepMs) {
  SegmentStart start = restingAt(timeMs, value);
  start.velocity = step * 1000.0 / static_cast<double>(stepMs);
  start.takesOver = step != 0.0;
  return start;
}

SegmentStart startAt(const Point& point, const Knot& knot, std::int64_t notBeforeMs) {
  SegmentStart start;
  start.timeMs = std::max(point.timeMs, notBeforeMs);
  start.value = double{point.value.asFloat};
  start.velocity = double{knot.velocity};
  start.acceleration = double{knot.acceleration};
  start.known = knot.known;
  return start;
}

Segment::Segment(const SegmentStart& start, const Point& end, const Knot& knot)
    : startMs_(start.timeMs),
      endMs_(end.timeMs),
      durationMs_(static_cast<double>(end.timeMs - start.timeMs)) {
  const auto endValue = double{end.value.asFloat};
  const double difference = endValue - start.value;
  // Velocities and accelerations over the whole of it.
  const double seconds = durationMs_ / 1000.0;
  SegmentStart scaled = start;
  scaled.velocity *= seconds;
  scaled.acceleration *= seconds * seconds;
  const double velocity = double{knot.velocity} * seconds;
  const double acceleration = double{knot.acceleration} * seconds * seconds;
  const Shape shape = shapeOf(start, end, knot);
  degree_ = degreeOf(shape);
  ordinates_[0] = start.value;
  ordinates_[degree_] = endValue;
  if (shape == Shape::cubic || (shape == Shape::smooth && start.takesOver)) {
    bend(scaled, velocity, 0.0);
  } else if (shape == Shape::smooth) {
    scaled.velocity = start.known == Knot::Known::nothing ? difference : scaled.velocity;
    scaled.velocity = monotone(scaled.velocity, difference);
    bend(scaled, monotone(velocity, difference), 0.0);
  } else if (shape == Shape::quintic) {
    bend(scaled, velocity, acceleration);
  } else if (shape == Shape::approach) {
    bend(scaled, 0.0, 0.0);
  } else if (shape == Shape::ramp) {
    ordinates_[1] = endValue;
    const double shareOfRamp = 2.0 * difference / scaled.velocity;
    durationMs_ *= shareOfRamp > 0.0 ? std::min(shareOfRamp, 1.0) : 1.0;
  }
}

/// Lays the inner ordinates so that the ends have these derivatives.
void Segment::bend(const SegmentStart& start, double velocity, double acceleration) {
  const auto degree = static_cast<double>(degree_);
  ordinates_[1] = ordinates_[0] + start.velocity / degree;
  ordinates_[degree_ - 1] = ordinates_[degree_] - velocity / degree;
  if (degree_ == 5) {
    ordinates_[2] = 2.0 * ordinates_[1] - ordinates_[0] + start.acceleration / 20.0;
    ordinates_[3] = 2.0 * ordinates_[4] - ordinates_[5] + acceleration / 20.0;
  }
}

double Segment::shareAt(double timeMs) const {
  return endMs_ > startMs_ ? std::min((timeMs - static_cast<double>(startMs_)) / durationMs_, 1.0)
                           : 1.0;
}

double Segment::valueAt(std::int64_t timeMs) const {
  const double share = shareAt(static_cast<double>(timeMs));
  return isLine() ? ordinates_[0] + (ordinates_[1] - ordinates_[0]) * share
                  : evaluate(ordinates_, degree_, share);
}

double Segment::velocity() const {
  return (ordinates_[degree_] - ordinates_[0]) / static_cast<double>(endMs_ - startMs_);
}

double Segment::evaluate(Ordinates ordinates, std::size_t degree, double share) {
  for (std::size_t left = degree; left > 0; --left) {
    for (std::size_t i = 0; i < left; ++i) {
      ordinates[i] += (ordinates[i + 1] - ordinates[i]) * share;
    }
  }
  return ordinates[0];
}

/// The ordinates of the derivative, of one degree less, over the whole.
Segment::Ordinates Segment::differences(const Ordinates& ordinates, std::size_t degree) {
  Ordinates result{};
  for (std::size_t i = 0; i < degree; ++i) {
    result[i] = static_cast<double>(degree) * (ordinates[i + 1] - ordinates[i]);
  }
  return result;
}

double Segment::largestMagnitude() const {
  double largest = 0.0;
  for (std::size_t i = 0; i <= degree_; ++i) {
    largest = std::max(largest, std::abs(ordinates_[i]));
  }
  return largest;
}

bool Segment::mayLeave(const Range& range) const {
  return std::any_of(ordinates_.begin(), ordinates_.begin() + degree_ + 1, [&](double ordinate) {
    return ordinate < range.minimum || ordinate > range.maximum;
  });
}

double Segment::largestAcceleration() const {
  const Ordinates second = differences(differences(ordinates_, degree_), degree_ - 1);
  double largest = 0.0;
  for (std::size_t i = 0; i + 1 < degree_; ++i) {
    largest = std::max(largest, std::abs(second[i]));
  }
  const double seconds = durationMs_ / 1000.0;
  return largest / (seconds * seconds);
}

/// Where a polynomial changes its sign between 0 and 1: once at most between two places
/// where its derivative does.
Segment::Roots Segment::rootsOf(const Ordinates& ordinates, std::size_t degree) {
  Roots roots;
  if (degree == 0) {
    return roots;
  }
  const Roots turns = rootsOf(differences(ordinates, degree), degree - 1);
  double low = 0.0;
  for (std::size_t i = 0; i <= turns.count; ++i) {
    const double next = i < turns.count ? turns.at[i] : 1.0;
    const bool rises = evaluate(ordinates, degree, low) < 0.0;
    double high = next;
    if (rises == (evaluate(ordinates, degree, high) > 0.0)) {
      constexpr int halvings = 50;
      for (int step = 0; step < halvings; ++step) {
        const double middle = 0.5 * (low + high);
        ((evaluate(ordinates, degree, middle) < 0.0) == rises ? low : high) = middle;
      }
      roots.at[roots.count++] = low;
    }
    low = next;
  }
  return roots;
}

template <typename IsMore>
Segment::Extreme Segment::extreme(const Ordinates& ordinates, std::size_t degree, double untilShare,
                                  const IsMore& isMore) {
  Roots turns = rootsOf(differences(ordinates, degree), degree - 1);
  turns.at[turns.count++] = untilShare;
  Extreme most{0.0, ordinates[0]};
  for (std::size_t i = 0; i < turns.count; ++i) {
    const double value = evaluate(ordinates, degree, turns.at[i]);
    if (turns.at[i] <= untilShare && isMore(value, most.amount)) {
      most = {turns.at[i], value};
    }
  }
  return most;
}

Segment::Extreme Segment::inTime(const Extreme& extreme) const {
  return {static_cast<double>(startMs_) + extreme.timeMs * durationMs_, extreme.amount};
}

Segment::Extreme Segment::lowest(std::int64_t untilMs) const {
  return inTime(extreme(ordinates_, degree_, shareAt(static_cast<double>(untilMs)),
                        [](double one, double other) { return one < other; }));
}

Segment::Extreme Segment::highest(std::int64_t untilMs) const {
  return inTime(extreme(ordinates_, degree_, shareAt(static_cast<double>(untilMs)),
                        [](double one, double other) { return one > other; }));
}

Segment::Extreme Segment::fastest(std::int64_t untilMs) const {
  Extreme most = inTime(
      extreme(differences(ordinates_, degree_), degree_ - 1, shareAt(static_cast<double>(untilMs)),
              [](double one, double other) { return std::abs(one) > std::abs(other); }));
  most.amount = std::abs(most.amount) * 1000.0 / durationMs_;
  return most;
}

std::optional<double> Segment::restFrom(std::int64_t fromMs, double direction) const {
  const Ordinates velocities = differences(ordinates_, degree_);
  const auto goesOn = [&](double share) {
    return evaluate(velocities, degree_ - 1, share) * direction > 0.0;
  };
  const double from = std::clamp(shareAt(static_cast<double>(fromMs)), 0.0, 1.0);
  if (!goesOn(from)) {
    return evaluate(ordinates_, degree_, from);
  }
  const Roots turns = rootsOf(velocities, degree_ - 1);
  for (std::size_t i = 0; i < turns.count; ++i) {
    if (turns.at[i] > from) {
      return evaluate(ordinates_, degree_, turns.at[i]);
    }
  }
  return goesOn(1.0) ? std::nullopt : std::optional(ordinates_[degree_]);
}

Segment::Extreme Segment::mostAccelerated(std::int64_t untilMs) const {
  Extreme most =
      inTime(extreme(differences(differences(ordinates_, degree_), degree_ - 1), degree_ - 2,
                     shareAt(static_cast<double>(untilMs)),
                     [](double one, double other) { return std::abs(one) > std::abs(other); }));
  const double seconds = durationMs_ / 1000.0;
  most.amount = std::abs(most.amount) / (seconds * seconds);
  return most;
}

std::int64_t cyclesBetweenSamples(double magnitude) {
  return cyclesWithin(std::max(1e-5 / ulpOf(magnitude), 2.0));
}

std::int64_t cyclesBetweenSamples(const Segment& curve, std::int64_t cycleMs) {
  const double ulp = ulpOf(curve.largestMagnitude());
  const std::int64_t most = cyclesWithin(std::max(2e-6 / ulp, 1.5));
  // A chord of this many seconds strays by an eighth of the acceleration times their square.
  const double allowed = std::max(8e-6, 2.5 * ulp);
  const double seconds = std::sqrt(8.0 * allowed / curve.largestAcceleration());
  const double cycles = seconds * 1000.0 / static_cast<double>(cycleMs);
  return cycles < static_cast<double>(most)
             ? std::max(static_cast<std::int64_t>(cycles), std::int64_t{1})
             : most;
}

std::optional<Sample> sampleAfter(const Segment& segment, std::int64_t afterMs,
                                  std::int64_t cycleMs, const Range& range) {
  const Samples samples(segment, cycleMs, range);
  const std::int64_t timeMs = samples.before(afterMs) + samples.distanceMs;
  if (timeMs >= segment.endMs()) {
    return std::nullopt;
  }
  return Sample{timeMs, static_cast<float>(heldAt(segment, timeMs, range))};
}

double registerAt(const Segment& segment, std::int64_t timeMs, std::int64_t cycleMs,
                  const Range& range) {
  if (segment.isLine() || timeMs <= segment.startMs() || timeMs >= segment.endMs()) {
    return heldAt(segment, std::max(timeMs, segment.startMs()), range);
  }
  const std::int64_t beforeMs = Samples(segment, cycleMs, range).before(timeMs);
  const bool isSample = beforeMs > segment.startMs() && beforeMs <= timeMs;
  const std::int64_t fromMs = isSample ? beforeMs : segment.startMs();
  const double held = heldAt(segment, fromMs, range);
  const double from = isSample ? double{static_cast<float>(held)} : held;
  const auto sample = sampleAfter(segment, timeMs, cycleMs, range);
  const std::int64_t toMs = sample ? sample->timeMs : segment.endMs();
  const double to = sample ? double{sample->value} : heldAt(segment, toMs, range);
  return from +
         (to - from) * static_cast<double>(timeMs - fromMs) / static_cast<double>(toMs - fromMs);
}

std::int64_t straightUntil(const Segment& segment, std::int64_t timeMs, std::int64_t cycleMs,
                           const Range& range) {
  const auto sample = sampleAfter(segment, timeMs - 1, cycleMs, range);
  return sample ? sample->timeMs : segment.endMs();
}

double strayAt(const Segment& segment, std::int64_t timeMs, std::int64_t cycleMs) {
  const double magnitude = segment.largestMagnitude();
  const std::int64_t between =
      segment.isLine() ? cyclesBetweenSamples(magnitude) : cyclesBetweenSamples(segment, cycleMs);
  const std::int64_t passed = (timeMs - segment.startMs()) / cycleMs + 1;
  return (ownRounding + ulpsPerCycle * static_cast<double>(std::min(between, passed))) *
         ulpOf(magnitude);
}

}  // namespace host
