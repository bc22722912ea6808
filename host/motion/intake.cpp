#include "host/motion/intake.h"

#include <algorithm>
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

void tellCleared(Event event, const Backlog::Removed& removed, PointCounts& counts,
                 Listener& listener) {
  std::vector<Point> points;
  for (const Backlog::Block& block : removed.blocks) {
    points.insert(points.end(), block.begin(), block.end());
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
