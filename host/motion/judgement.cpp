#include "host/motion/judgement.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "host/base/clocks.h"
#include "host/motion/limits.h"

namespace host {
namespace {

/// By less than this values of a run and of its rehearsal may differ.
double roundingAt(double limit) {
  constexpr double relative = 2.4e-7;
  return std::max(1e-5, relative * std::abs(limit));
}

/// How much of a difference at the start of a curve may come on top of its velocity, for a
/// duration of 1.
constexpr double steepestShare = 1.875;

}  // namespace

Judge::Judge(const MachineModel& machine, int actuator, std::int64_t cycleMs)
    : actuator_(machine.actuator(actuator)),
      index_(actuator),
      cycleMs_(cycleMs),
      maximumAcceleration_(machine.maximumAcceleration(actuator)),
      lastMs_(-cycleMs),
      value_(commandedNumber(actuator_, initialRecord(actuator_))),
      path_(value_) {
  bounds_.push_back(
      {double{actuator_.maximumVelocity}, {actuator_.minimum, actuator_.maximum}, -1});
  for (std::size_t i = 0; i < machine.followers.size(); ++i) {
    const Follower& follower = machine.followers[i];
    if (follower.actuator == actuator && follower.multiplier != 0.0) {
      Range range{(follower.minimum - follower.offset) / follower.multiplier,
                  (follower.maximum - follower.offset) / follower.multiplier};
      if (follower.multiplier < 0.0) {
        std::swap(range.minimum, range.maximum);
      }
      bounds_.push_back(
          {follower.maximumVelocity / std::abs(follower.multiplier), range, static_cast<int>(i)});
    }
  }
  limitsSteps_ = std::any_of(bounds_.begin(), bounds_.end(), [](const Bound& bound) {
    return std::isfinite(bound.maximumVelocity);
  });
}

void Judge::begin(std::int64_t latestMs, const SegmentStart& start, std::uint32_t byBatch) {
  lastMs_ = latestMs;
  emptiedBy_ = byBatch;
  corner_.reset();
  if (actuator_.interpolates) {
    value_ = path_ = start.value;
    doubt_ = start.doubt;
    isExact_ = start.doubt == 0.0;
    velocity_ = start.velocity;
  }
}

void Judge::follow(const SegmentStart& start, const Aim& aim, std::int64_t untilMs,
                   Listener& listener) {
  const std::int64_t fromMs = std::max(lastMs_, start.timeMs);
  if (untilMs > fromMs && actuator_.interpolates) {
    const Segment segment(start, aim.point, aim.knot);
    if (!aim.point.isOfHost) {
      judgeSpeed(segment, start, aim, untilMs, listener);
      judgeRange(segment, aim, untilMs, listener);
      judgeAcceleration(segment, aim, fromMs, untilMs, listener);
    }
    const std::int64_t beforeMs = std::max(untilMs - cycleMs_, fromMs);
    velocity_ = (segment.valueAt(untilMs) - segment.valueAt(beforeMs)) /
                static_cast<double>(untilMs - beforeMs) * msPerSecond;
    const Range& range = bounds_.front().range;
    value_ = registerAt(segment, untilMs, cycleMs_, range);
    path_ = segment.valueAt(untilMs);
    isExact_ = untilMs == segment.endMs();
    doubt_ = start.doubt * static_cast<double>(segment.endMs() - untilMs) /
             static_cast<double>(segment.endMs() - segment.startMs());
  }
  lastMs_ = std::max(lastMs_, untilMs);
}

void Judge::reach(const Taking& taking, Listener& listener) {
  const Aim& first = taking.points.front();
  const Aim& last = taking.points.back();
  const bool arrives = taking.points.size() == 1 && first.point.timeMs == taking.timeMs &&
                       taking.start.timeMs <= taking.previousMs && actuator_.interpolates;
  follow(taking.start, first, arrives ? taking.timeMs : taking.previousMs, listener);
  judgePoints(taking, listener);
  corner_ = last.point;
  if (arrives) {
    return;
  }
  Step step{value_, commandedNumber(actuator_, last.point.value),
            static_cast<double>(taking.timeMs - taking.previousMs), doubt_, isExact_};
  double path = step.to;
  if (actuator_.interpolates && taking.next && last.point.timeMs < taking.timeMs) {
    const Segment segment(startAt(last.point, last.knot, taking.previousMs), taking.next->point,
                          taking.next->knot);
    step.to = registerAt(segment, taking.timeMs, cycleMs_, bounds_.front().range);
    path = segment.valueAt(taking.timeMs);
    step.isExact = false;
  }
  const double velocity = (path - path_) / step.stepMs * msPerSecond;
  if (!last.point.isOfHost) {
    judgeStep(taking, step, listener);
  }
  if (knowsAcceleration() && !last.point.isOfHost) {
    judgeChange(velocity, step.stepMs, static_cast<double>(taking.timeMs), last.point, listener);
  }
  lastMs_ = taking.timeMs;
  value_ = step.to;
  path_ = path;
  velocity_ = velocity;
  doubt_ = 0.0;
  isExact_ = path == commandedNumber(actuator_, last.point.value);
}

void Judge::rest(std::int64_t untilMs, Listener& listener) {
  if (untilMs <= lastMs_) {
    return;
  }
  const bool isAsked = corner_ ? !corner_->isOfHost : emptiedBy_ != Event::byOthers;
  if (isMoving() && isAsked) {
    Point nowhere;
    nowhere.batch = emptiedBy_;
    judgeChange(0.0, static_cast<double>(cycleMs_), static_cast<double>(lastMs_ + cycleMs_),
                corner_.value_or(nowhere), listener);
  }
  velocity_ = 0.0;
  lastMs_ = untilMs;
}

void Judge::skip(std::int64_t ms, std::uint32_t points) {
  lastMs_ += ms;
  if (corner_) {
    corner_->timeMs += ms;
    corner_->index += points;
  }
}

/// Values that are known exactly are measured as the guard does; rounding may make up for what
/// it allows beside that.
bool Judge::isTooLarge(const Bound& bound, const Step& step) const {
  const double rounding =
      step.isExact ? stepUlps * ulpOf(static_cast<float>(step.from), static_cast<float>(step.to))
                   : 0.0;
  const double allowed = bound.maximumVelocity / msPerSecond * step.stepMs * stepTolerance;
  return !(std::abs(step.to - step.from) + step.doubt <= allowed + rounding);
}

Event Judge::eventOf(EventKind kind, const Point& named, const Bound& bound) const {
  Event event{kind, Fault::none, lastMs_, named.batch, index_, named.index, 1};
  event.follower = bound.follower;
  return event;
}

void Judge::judgeSpeed(const Segment& segment, const SegmentStart& start, const Aim& aim,
                       std::int64_t untilMs, Listener& listener) const {
  if (!limitsSteps_) {
    return;
  }
  const auto durationMs = static_cast<double>(segment.endMs() - segment.startMs());
  const auto cycleMs = static_cast<double>(cycleMs_);
  Segment::Extreme fastest{std::numeric_limits<double>::quiet_NaN(),
                           segment.velocity() * msPerSecond};
  double doubt = start.doubt / durationMs;
  if (!segment.isLine()) {
    fastest = segment.fastest(straightUntil(segment, untilMs, cycleMs_, bounds_.front().range));
    doubt = steepestShare * doubt + start.velocityDoubt / msPerSecond;
  }
  // Over one cycle, or as much of one as there is of a segment.
  Step step{start.value, start.value + fastest.amount * cycleMs / msPerSecond, cycleMs,
            doubt * cycleMs, false};
  if (segment.isLine() && durationMs <= cycleMs) {
    step = {start.value, double{aim.point.value.asFloat}, durationMs, doubt * durationMs, isExact_};
  }
  for (const Bound& bound : bounds_) {
    if (isTooLarge(bound, step)) {
      Event event = eventOf(EventKind::steep, aim.point, bound);
      event.amount = std::abs(fastest.amount);
      event.momentMs = fastest.timeMs;
      listener.tell(event, &aim.point);
    }
  }
}

void Judge::judgeRange(const Segment& segment, const Aim& aim, std::int64_t untilMs,
                       Listener& listener) const {
  if (segment.isLine()) {
    return;
  }
  for (const Bound& bound : bounds_) {
    if (!segment.mayLeave(bound.range)) {
      continue;
    }
    const Segment::Extreme lowest = segment.lowest(untilMs);
    const Segment::Extreme highest = segment.highest(untilMs);
    const double below = bound.range.minimum - roundingAt(bound.range.minimum) - lowest.amount;
    const double above = highest.amount - bound.range.maximum - roundingAt(bound.range.maximum);
    const Segment::Extreme& farthest = below > above ? lowest : highest;
    // Of followers, points are judged for themselves.
    const bool isPoint =
        bound.follower >= 0 && (farthest.timeMs <= static_cast<double>(segment.startMs()) ||
                                farthest.timeMs >= static_cast<double>(segment.endMs()));
    if (std::max(below, above) > 0.0 && !isPoint) {
      Event event = eventOf(EventKind::beyond, aim.point, bound);
      event.amount = farthest.amount;
      event.momentMs = farthest.timeMs;
      listener.tell(event, &aim.point);
    }
  }
}

void Judge::judgeAcceleration(const Segment& segment, const Aim& aim, std::int64_t fromMs,
                              std::int64_t untilMs, Listener& listener) const {
  if (!knowsAcceleration()) {
    return;
  }
  const std::int64_t firstMs = std::min(fromMs + cycleMs_, untilMs);
  const auto firstStepMs = static_cast<double>(firstMs - fromMs);
  judgeChange((segment.valueAt(firstMs) - segment.valueAt(fromMs)) / firstStepMs * msPerSecond,
              firstStepMs, static_cast<double>(firstMs), corner_.value_or(aim.point), listener);
  if (!segment.isLine()) {
    const Segment::Extreme most = segment.mostAccelerated(untilMs);
    if (most.amount > maximumAcceleration_ * stepTolerance) {
      Event event = eventOf(EventKind::abrupt, aim.point, bounds_.front());
      event.amount = most.amount;
      event.momentMs = most.timeMs;
      listener.tell(event, &aim.point);
    }
  }
}

/// The velocity becomes this in one cycle. Points are single numbers: their rounding is no
/// acceleration.
void Judge::judgeChange(double velocity, double stepMs, double timeMs, const Point& named,
                        Listener& listener) const {
  const double seconds = stepMs / msPerSecond;
  const auto value = static_cast<float>(value_);
  const double rounding = 2.0 * stepUlps * ulpOf(value, value) / seconds;
  const double change = std::abs(velocity - velocity_);
  if (change > maximumAcceleration_ * seconds * stepTolerance + rounding) {
    Event event = eventOf(EventKind::abrupt, named, bounds_.front());
    event.amount = change / seconds;
    event.momentMs = timeMs;
    listener.tell(event, &named);
  }
}

/// Points are within the limits of the actuator, but may lead a follower beyond its own.
void Judge::judgePoints(const Taking& taking, Listener& listener) const {
  for (auto bound = bounds_.begin() + 1; bound != bounds_.end(); ++bound) {
    for (const Aim& aim : taking.points) {
      const double value = commandedNumber(actuator_, aim.point.value);
      const Range& range = bound->range;
      const bool isBeyond = value < range.minimum - roundingAt(range.minimum) ||
                            value > range.maximum + roundingAt(range.maximum);
      if (isBeyond && !aim.point.isOfHost) {
        Event event = eventOf(EventKind::beyond, aim.point, *bound);
        event.amount = value;
        event.momentMs = static_cast<double>(aim.point.timeMs);
        listener.tell(event, &aim.point);
      }
    }
  }
}

void Judge::judgeStep(const Taking& taking, const Step& step, Listener& listener) const {
  for (const Bound& bound : bounds_) {
    if (isTooLarge(bound, step)) {
      const Point& cause = causeOf(taking, step, actuator_);
      Event event = eventOf(EventKind::steep, cause, bound);
      event.amount = std::abs(step.to - step.from) / step.stepMs * msPerSecond;
      event.momentMs = static_cast<double>(taking.timeMs);
      listener.tell(event, &cause);
    }
  }
}

/// Of all that a cycle moved towards, what lay farthest in the direction in which it went.
const Point& Judge::causeOf(const Taking& taking, const Step& step,
                            const simulation::Actuator& actuator) {
  const double direction = step.to < step.from ? -1.0 : 1.0;
  // Rounding shall not choose between two that are alike.
  const double margin = 1e-4 * std::abs(step.to - step.from);
  const Point* cause = &taking.points.front().point;
  double most = -std::numeric_limits<double>::infinity();
  double value = step.from;
  const auto goOnTo = [&](double next, const Point& point) {
    if ((next - value) * direction > most + margin) {
      most = (next - value) * direction;
      cause = &point;
    }
    value = next;
  };
  for (const Aim& aim : taking.points) {
    goOnTo(commandedNumber(actuator, aim.point.value), aim.point);
  }
  if (taking.next) {
    goOnTo(step.to, taking.next->point);
  }
  return *cause;
}

}  // namespace host
