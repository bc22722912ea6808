#include "host/motion/judgement.h"

#include <algorithm>

#include "host/motion/limits.h"

namespace host {
namespace {

/// By less than this values of a run and of its rehearsal may differ.
double roundingAt(double limit) {
  constexpr double relative = 2.4e-7;
  return std::max(1e-5, relative * std::abs(limit));
}

void judgeSpeed(const simulation::Actuator& actuator, const Segment& segment,
                const JudgedSegment& judged, Event event, std::vector<Event>& told) {
  if (segment.isLine()) {
    event.amount =
        speedOf(judged.start, judged.end.timeMs, double{judged.end.value.asFloat}, judged.cycleMs);
  } else {
    const Segment::Extreme fastest = segment.fastest(judged.untilMs);
    event.amount = fastest.amount;
    event.momentMs = fastest.timeMs;
  }
  if (isTooFast(actuator, event.amount)) {
    event.kind = EventKind::steep;
    told.push_back(event);
  }
}

void judgeRange(const simulation::Actuator& actuator, const Segment& segment,
                const JudgedSegment& judged, Event event, std::vector<Event>& told) {
  const Segment::Extreme lowest = segment.lowest(judged.untilMs);
  const Segment::Extreme highest = segment.highest(judged.untilMs);
  const double below = actuator.minimum - roundingAt(actuator.minimum) - lowest.amount;
  const double above = highest.amount - actuator.maximum - roundingAt(actuator.maximum);
  if (std::max(below, above) > 0.0) {
    const Segment::Extreme& farthest = below > above ? lowest : highest;
    event.kind = EventKind::beyond;
    event.amount = farthest.amount;
    event.momentMs = farthest.timeMs;
    told.push_back(event);
  }
}

}  // namespace

std::vector<Event> judgeSegment(const simulation::Actuator& actuator, const JudgedSegment& judged,
                                const Event& event) {
  std::vector<Event> told;
  const Segment segment(judged.start, judged.end, judged.knot);
  judgeSpeed(actuator, segment, judged, event, told);
  if (!segment.isLine() && segment.mayLeave({actuator.minimum, actuator.maximum})) {
    judgeRange(actuator, segment, judged, event, told);
  }
  return told;
}

}  // namespace host
