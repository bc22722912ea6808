#include "host/motion/intake.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

#include "host/motion/limits.h"

namespace host {
namespace {

/// As the library's sort leaves them.
void turnTiesRound(std::vector<Point>& points) {
  for (auto first = points.begin(); first != points.end();) {
    const auto end = std::find_if(
        first, points.end(), [&](const Point& point) { return point.timeMs != first->timeMs; });
    std::reverse(first, end);
    first = end;
  }
}

}  // namespace

Rounds Intake::points() const {
  const CommandBatch& commands = *batch.commands;
  std::vector<Point> points;
  points.reserve(commands.times.size());
  for (std::size_t i = 0; i < commands.times.size(); ++i) {
    points.push_back({batch.originMs + commands.times[i],
                      limited(actuator, commands.value(i, column)), number,
                      static_cast<std::uint32_t>(i)});
  }
  turnTiesRound(points);
  return {std::move(points), commands.repeat, batch.originMs};
}

Knot Intake::messageKnot(std::size_t point) const {
  const CommandBatch& commands = *batch.commands;
  const std::size_t position = point * commands.actuators.size() + column;
  Knot knot;
  if (!actuator.interpolates || commands.velocities.empty() ||
      std::isnan(commands.velocities[position])) {
    return knot;
  }
  knot.shape = Shape::cubic;
  knot.known = Knot::Known::velocity;
  knot.velocity = commands.velocities[position];
  if (!commands.accelerations.empty() && !std::isnan(commands.accelerations[position])) {
    knot.shape = Shape::quintic;
    knot.known = Knot::Known::acceleration;
    knot.acceleration = commands.accelerations[position];
  }
  return knot;
}

std::shared_ptr<const Curve> Intake::curve(const Rounds& rounds) const {
  const std::vector<Point>& points = rounds.first();
  if (!actuator.interpolates || points.empty()) {
    return nullptr;
  }
  std::vector<Knot> knots;
  const bool isSmooth = batch.interpolation == Interpolation::smooth;
  if (isSmooth ||
      (batch.interpolation == Interpolation::message && !batch.commands->velocities.empty())) {
    for (std::size_t point = 0; point < points.size(); ++point) {
      knots.push_back(messageKnot(point));
    }
  }
  if (isSmooth) {
    addSlopes(points, batch.approaches, knots);
  }
  if (knots.empty() && !batch.approaches) {
    return nullptr;
  }
  return std::make_shared<Curve>(std::move(knots), points.size() - rounds.sizeOfRound(),
                                 batch.approaches);
}

Event Intake::findFault(const Rounds& rounds, const Backlog& backlog,
                        const hal::AttrGeneric& present, Density& density) const {
  Event fault{EventKind::refused, Fault::none, latestMs, number, actuatorIndex()};
  const std::vector<Point>& points = rounds.first();
  const auto bad = std::find_if(points.begin(), points.end(), [this](const Point& point) {
    return !isCommandable(actuator, point.value);
  });
  if (bad != points.end() || (!points.empty() && !isCommandable(actuator, present))) {
    fault.reason = Fault::notFinite;
    fault.point = bad != points.end() ? bad->index : 0;
    return fault;
  }
  const auto steep = std::find_if(points.begin(), points.end(), [this](const Point& point) {
    const Knot knot = messageKnot(point.index);
    return !(std::abs(knot.velocity) <= mostDerivative &&
             std::abs(knot.acceleration) <= mostDerivative);
  });
  if (steep != points.end()) {
    fault.reason = Fault::tooSteep;
    fault.point = steep->index;
    return fault;
  }
  density = densityAround(rounds, backlog, mode(), latestMs, cycleMs);
  if (density.inTwoCycles > TimedCommand::MAX_TIMELINE_ITEMS) {
    fault.reason = Fault::tooDense;
    fault.amount = static_cast<double>(density.inTwoCycles);
  } else if (rounds.isRepeated() && !backlog.hasRoomForRounds()) {
    fault.reason = Fault::full;
  }
  return fault;
}

void Intake::tellTaken(const Rounds& points, PointCounts& counts, Listener& listener) const {
  Event taken{EventKind::taken, Fault::none, latestMs, number, actuatorIndex()};
  taken.count = points.size();
  listener.tell(taken, points.isRepeated() ? nullptr : points.first().data());
  const std::uint64_t onceOnly = points.first().size() - points.sizeOfRound();
  for (const Point& point : points.first()) {
    const hal::AttrGeneric& asked = batch.commands->value(point.index, column);
    if (!isSameValue(asked, point.value)) {
      Event moved{EventKind::limited, Fault::none, latestMs, number,
                  actuatorIndex(),    point.index, 1};
      moved.amount = commandedNumber(actuator, asked);
      moved.rounds = point.index < onceOnly ? 1 : batch.commands->repeat;
      listener.tell(moved, &point);
      counts.limited += moved.rounds;
    }
  }
  tellUnstopped(points, listener);
  const std::int64_t inTimeMs = std::max(batch.momentMs.value_or(latestMs + 1), latestMs + 1);
  if (points.empty() || points.firstMs() >= inTimeMs) {
    return;
  }
  Event late = taken;
  late.kind = EventKind::late;
  late.count = points.findFirst(inTimeMs);
  late.amount = static_cast<double>(inTimeMs - points.firstMs());
  listener.tell(late, nullptr);
  counts.late += late.count;
}

void Intake::tellUnstopped(const Rounds& points, Listener& listener) const {
  if (batch.interpolation == Interpolation::linear || points.empty()) {
    return;
  }
  const Point last = points.at(points.size() - 1);
  const Knot knot = messageKnot(batch.commands->rowOf(last.index));
  if (knot.velocity != 0.0F) {
    Event unstopped{EventKind::unstopped, Fault::none, latestMs, number,
                    actuatorIndex(),      last.index,  1};
    unstopped.amount = std::abs(double{knot.velocity});
    listener.tell(unstopped, &last);
  }
}

void tellCleared(Event event, const Backlog::Removed& removed, PointCounts& counts,
                 Listener& listener) {
  std::vector<Point> points;
  for (const Backlog::Block& block : removed.blocks) {
    std::copy_if(block.begin(), block.end(), std::back_inserter(points),
                 [](const Point& point) { return !point.isOfHost; });
  }
  tellRuns(event, points, listener);
  counts.cleared += points.size();
  for (const Backlog::Run& run : removed.runs) {
    event.batch = run.batch;
    event.point = run.first;
    event.count = run.count;
    listener.tell(event, nullptr);
    counts.cleared += run.count;
  }
}

void tellRuns(Event event, const std::vector<Point>& points, Listener& listener) {
  for (auto first = points.begin(); first != points.end();) {
    auto end = first + 1;
    while (end != points.end() && end->batch == first->batch &&
           end->index == (end - 1)->index + 1) {
      ++end;
    }
    event.batch = first->batch;
    event.point = first->index;
    event.count = static_cast<std::uint64_t>(end - first);
    listener.tell(event, &*first);
    first = end;
  }
}

}  // namespace host
