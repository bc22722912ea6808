#include "host/motion/rehearsedaxis.h"

#include <algorithm>
#include <limits>
#include <numeric>

#include "host/motion/stop.h"

namespace host {
namespace {

/// Passes on what it is told, and keeps it.
class Recorder : public Listener {
 public:
  explicit Recorder(Listener& listener) : listener_(listener) {}

  void tell(const Event& event, const Point* points) override {
    listener_.tell(event, points);
    told.emplace_back(event, *points);
  }
  std::vector<std::pair<Event, Point>> told;

 private:
  Listener& listener_;
};

}  // namespace

void RehearsedAxis::goOnTo(std::int64_t cycleMs) {
  if (cycleMs > latestMs_) {
    runTo(cycleMs - cycleMs_);
    valueBefore_ = valueNow();
    runTo(cycleMs);
  }
}

Event RehearsedAxis::findFault(const Intake& intake, const Rounds& points) {
  if (gaveUp_) {
    return {};
  }
  Density density;
  hal::AttrGeneric present = initialRecord(actuator_);
  if (actuator_.interpolates) {
    present.asFloat = static_cast<float>(start_.value);
  }
  Event fault = intake.findFault(points, backlog_, present, density);
  if (fault.reason == Fault::none) {
    backlog_.noteDensity(density.inTwoCycles);
  }
  return fault;
}

void RehearsedAxis::take(const Intake& intake, const Rounds& points) {
  counts_.points += points.size();
  if (gaveUp_) {
    return;
  }
  const bool hadFirst = !backlog_.empty();
  const Point first = hadFirst ? backlog_.front() : Point();
  const Knot firstKnot = backlog_.knotOf(first);
  const SegmentStart present = presentStart();
  Event cleared{EventKind::cleared, Fault::none, latestMs_, 0, index_};
  cleared.byBatch = intake.number;
  const Backlog::Removed removed = intake.batch.commands->isStop
                                       ? stop(present, intake.number)
                                       : backlog_.take(points, intake.mode(), intake.curve(points));
  walked_.clear();
  const bool goesOn = hadFirst && !backlog_.empty() && backlog_.front().isSamePointAs(first);
  if (!hadFirst) {
    judge_.rest(latestMs_, listener_);
  }
  if (!goesOn && (hadFirst || !backlog_.empty())) {
    if (hadFirst && first.timeMs > latestMs_) {
      judge_.follow(start_, {first, firstKnot}, latestMs_, listener_);
    }
    start_ = present;
    judge_.begin(latestMs_, start_,
                 intake.batch.commands->isStop ? Event::byOthers : intake.number);
    backlog_.beginInMotion(present.takesOver);
  }
  tellCleared(cleared, removed, counts_, listener_);
  intake.tellTaken(points, counts_, listener_);
}

void RehearsedAxis::refuse(std::uint64_t points) {
  counts_.points += points;
  counts_.refused += points;
}

void RehearsedAxis::finish() {
  goOnTo(std::numeric_limits<std::int64_t>::max() / 2);
  if (backlog_.empty()) {
    judge_.rest(latestMs_, listener_);
  }
  if (gaveUp_) {
    const Point& next = backlog_.front();
    Event uncertain{EventKind::uncertain, Fault::none, latestMs_, next.batch, index_, next.index};
    uncertain.count = counts_.left();
    listener_.tell(uncertain, nullptr);
  }
}

Backlog::Removed RehearsedAxis::stop(const SegmentStart& present, std::uint32_t batch) {
  std::vector<Point> points;
  if (backlog_.isStopping()) {
    return {};
  }
  if (actuator_.interpolates && !backlog_.empty()) {
    const Moving moving{actuator_, maximumAcceleration_, backlog_, start_, present};
    const std::optional<Point> rest = stopPoint(moving, batch);
    points.assign(rest ? 1 : 0, rest.value_or(Point()));
  }
  return backlog_.take(Rounds(std::move(points)), TimedCommand::REPLACE, stopCurve());
}

std::int64_t RehearsedAxis::reachingCycle(const Point& point) const {
  const std::int64_t cycles = (point.timeMs - latestMs_ + cycleMs_ - 1) / cycleMs_;
  return latestMs_ + std::max<std::int64_t>(cycles, 1) * cycleMs_;
}

void RehearsedAxis::run(std::int64_t cycleMs) {
  std::vector<Aim> taken;
  std::vector<Point> reached;
  const std::size_t count =
      reachedCount(backlog_.size(), cycleMs, [this](std::size_t i) { return backlog_[i].timeMs; });
  for (std::size_t i = 0; i < count; ++i) {
    const Point point = backlog_.front();
    taken.push_back({point, backlog_.knotOf(point)});
    backlog_.popFront();
    noteWalked(point, cycleMs);
    if (!point.isOfHost) {
      reached.push_back(point);
    }
  }
  judge({cycleMs, cycleMs - cycleMs_, start_, taken, nextAim()});
  start_ = startAt(taken.back().point, taken.back().knot, cycleMs - cycleMs_);
  held_ = commandedNumber(actuator_, taken.back().point.value);
  counts_.reached += reached.size();
  walkedInAll_ += count;
  tellRuns({EventKind::reached, Fault::none, cycleMs, 0, index_}, reached, listener_);
  latestMs_ = cycleMs;
}

void RehearsedAxis::runTo(std::int64_t cycleMs) {
  hasRun_ = hasRun_ || (cycleMs > latestMs_ && !backlog_.empty());
  while (!backlog_.empty() && !gaveUp_ && reachingCycle(backlog_.front()) <= cycleMs) {
    run(reachingCycle(backlog_.front()));
    skipRounds(cycleMs);
    gaveUp_ = walkedInAll_ > mostWalked_;
  }
  latestMs_ = std::max(latestMs_, cycleMs);
}

std::optional<Aim> RehearsedAxis::nextAim() const {
  return backlog_.empty()
             ? std::nullopt
             : std::optional<Aim>({backlog_.front(), backlog_.knotOf(backlog_.front())});
}

void RehearsedAxis::judge(const Taking& taking) {
  const Rounds* const rounds = backlog_.onlyRounds();
  Recorder recorder(listener_);
  judge_.reach(taking, recorder);
  for (auto& [event, point] : recorder.told) {
    if (rounds != nullptr && rounds->first().front().batch == point.batch) {
      walked_.told.push_back({event, point, taking.points.back().point.index});
    }
  }
}

void RehearsedAxis::noteWalked(const Point& point, std::int64_t cycleMs) {
  if (point.timeMs <= cycleMs - cycleMs_ || point.batch != walked_.batch) {
    walked_.clear();
    walked_.batch = point.batch;
  } else {
    ++walked_.count;
  }
}

void RehearsedAxis::skipRounds(std::int64_t untilMs) {
  constexpr std::uint64_t walkedUnits = 3;
  const Rounds* const rounds = backlog_.onlyRounds();
  if (rounds == nullptr || !rounds->rises() ||
      walked_.count <= walkedUnits * roundsOnGrid(*rounds) * rounds->sizeOfRound() ||
      walked_.batch != rounds->first().front().batch) {
    return;
  }
  const Walked walked = std::exchange(walked_, {});
  const Point next = backlog_.front();
  const Rounds of = *rounds;
  const std::uint64_t skipped =
      next.batch == walked.batch ? backlog_.skipRounds(untilMs, roundsOnGrid(of)) : 0;
  if (skipped == 0) {
    return;
  }
  const std::uint64_t points = skipped * of.sizeOfRound();
  const std::int64_t tookMs = static_cast<std::int64_t>(skipped) * of.periodMs();
  start_.timeMs += tookMs;
  latestMs_ += tookMs;
  judge_.skip(tookMs, static_cast<std::uint32_t>(points));
  tellAgain(walked, of, skipped, next.index);
  counts_.reached += points;
  Event reached{EventKind::reached, Fault::none, latestMs_, next.batch, index_, next.index};
  reached.count = points;
  listener_.tell(reached, nullptr);
}

std::uint64_t RehearsedAxis::roundsOnGrid(const Rounds& rounds) const {
  const std::int64_t common = std::gcd(cycleMs_, rounds.periodMs());
  return static_cast<std::uint64_t>(std::max<std::int64_t>(cycleMs_ / common, 1));
}

void RehearsedAxis::tellAgain(const Walked& walked, const Rounds& rounds, std::uint64_t skipped,
                              std::uint32_t next) {
  const std::uint64_t unit = roundsOnGrid(rounds);
  const std::uint64_t points = unit * rounds.sizeOfRound();
  const std::int64_t periodMs = static_cast<std::int64_t>(unit) * rounds.periodMs();
  for (auto [event, point, after] : walked.told) {
    if (after + points >= next) {
      point.index += static_cast<std::uint32_t>(points);
      point.timeMs += periodMs;
      event.point = point.index;
      event.momentMs += static_cast<double>(periodMs);
      event.rounds = skipped / unit;
      event.roundStep = unit;
      listener_.tell(event, &point);
    }
  }
}

double RehearsedAxis::valueNow() const {
  if (backlog_.empty() || start_.timeMs >= latestMs_ || backlog_.front().timeMs <= latestMs_) {
    return start_.value;
  }
  const Point& end = backlog_.front();
  return registerAt(Segment(start_, end, backlog_.knotOf(end)), latestMs_, cycleMs_,
                    {actuator_.minimum, actuator_.maximum});
}

SegmentStart RehearsedAxis::presentStart() const {
  const double value = valueNow();
  SegmentStart start = hasRun_ ? movingAt(latestMs_, value, value - valueBefore_, cycleMs_)
                               : restingAt(latestMs_ + cycleMs_, value);
  start.doubt = start_.doubt;
  start.velocityDoubt = start.takesOver ? velocityDoubtAt(value) : 0.0;
  if (!backlog_.empty() && start_.timeMs < latestMs_ && backlog_.front().timeMs > latestMs_) {
    const Point& end = backlog_.front();
    start.doubt += strayAt(Segment(start_, end, backlog_.knotOf(end)), latestMs_, cycleMs_);
  }
  return start;
}

double RehearsedAxis::velocityDoubtAt(double value) const {
  const auto single = static_cast<float>(value);
  return (2.0 * stepUlps * ulpOf(single, single) + start_.doubt) / static_cast<double>(cycleMs_) *
         1000.0;
}

}  // namespace host
