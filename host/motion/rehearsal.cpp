#include "host/motion/rehearsal.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <optional>
#include <utility>

#include "host/motion/backlog.h"
#include "host/motion/intake.h"
#include "host/motion/judgement.h"
#include "host/motion/limits.h"
#include "host/motion/segment.h"
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

/// One axis, advanced from change to change.
class RehearsedAxis {
 public:
  RehearsedAxis(int index, const MachineModel& machine, std::int64_t cycleMs, Listener& listener)
      : index_(index),
        actuator_(machine.actuator(index)),
        maximumAcceleration_(machine.maximumAcceleration(index)),
        cycleMs_(cycleMs),
        listener_(listener),
        latestMs_(-cycleMs),
        start_(restingAt(0, commandedNumber(actuator_, initialRecord(actuator_)))),
        valueBefore_(start_.value),
        judge_(machine, index, cycleMs) {}

  /// Runs all cycles up to this one.
  void goOnTo(std::int64_t cycleMs) {
    if (cycleMs > latestMs_) {
      runTo(cycleMs - cycleMs_);
      valueBefore_ = valueNow();
      runTo(cycleMs);
    }
  }

  [[nodiscard]] Intake intake(const ScheduledBatch& batch, std::uint32_t number,
                              std::size_t column) const {
    return {batch, number, column, actuator_, latestMs_, cycleMs_};
  }
  [[nodiscard]] Event findFault(const Intake& intake, const Rounds& points) {
    if (gaveUp_) {
      return {};
    }
    Density density;
    hal::AttrGeneric present = initialRecord(actuator_);
    if (actuator_.interpolates) {
      present.asFloat = static_cast<float>(start_.value);
    }
    const Event fault = intake.findFault(points, backlog_, present, density);
    if (fault.reason == Fault::none) {
      backlog_.noteDensity(density.inTwoCycles);
    }
    return fault;
  }

  void take(const Intake& intake, const Rounds& points) {
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
    const Backlog::Removed removed =
        intake.batch.commands->isStop ? stop(present, intake.number)
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

  void refuse(std::uint64_t points) {
    counts_.points += points;
    counts_.refused += points;
  }

  void finish() {
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

  [[nodiscard]] const PointCounts& counts() const { return counts_; }

 private:
  /// What was told, when a cycle had taken points up to this one.
  struct Told {
    Event event;
    Point point;
    std::uint32_t after;
  };
  /// What went by since the last change.
  struct Walked {
    std::uint32_t batch = 0;
    std::uint64_t count = 0;
    std::vector<Told> told;
    void clear() { *this = Walked(); }
  };

  Backlog::Removed stop(const SegmentStart& present, std::uint32_t batch) {
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

  [[nodiscard]] std::int64_t reachingCycle(const Point& point) const {
    const std::int64_t cycles = (point.timeMs - latestMs_ + cycleMs_ - 1) / cycleMs_;
    return latestMs_ + std::max<std::int64_t>(cycles, 1) * cycleMs_;
  }

  void run(std::int64_t cycleMs) {
    std::vector<Aim> taken;
    std::vector<Point> reached;
    const std::size_t count = reachedCount(backlog_.size(), cycleMs,
                                           [this](std::size_t i) { return backlog_[i].timeMs; });
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
    counts_.reached += reached.size();
    walkedInAll_ += count;
    tellRuns({EventKind::reached, Fault::none, cycleMs, 0, index_}, reached, listener_);
    latestMs_ = cycleMs;
  }

  void runTo(std::int64_t cycleMs) {
    hasRun_ = hasRun_ || (cycleMs > latestMs_ && !backlog_.empty());
    while (!backlog_.empty() && !gaveUp_ && reachingCycle(backlog_.front()) <= cycleMs) {
      run(reachingCycle(backlog_.front()));
      skipRounds(cycleMs);
      gaveUp_ = walkedInAll_ > mostWalked;
    }
    latestMs_ = std::max(latestMs_, cycleMs);
  }

  [[nodiscard]] std::optional<Aim> nextAim() const {
    return backlog_.empty()
               ? std::nullopt
               : std::optional<Aim>({backlog_.front(), backlog_.knotOf(backlog_.front())});
  }

  void judge(const Taking& taking) {
    const Rounds* const rounds = backlog_.onlyRounds();
    Recorder recorder(listener_);
    judge_.reach(taking, recorder);
    for (auto& [event, point] : recorder.told) {
      if (rounds != nullptr && rounds->first().front().batch == point.batch) {
        walked_.told.push_back({event, point, taking.points.back().point.index});
      }
    }
  }

  /// Keeps count of points of one batch that follow each other, each reached in its cycle.
  void noteWalked(const Point& point, std::int64_t cycleMs) {
    if (point.timeMs <= cycleMs - cycleMs_ || point.batch != walked_.batch) {
      walked_.clear();
      walked_.batch = point.batch;
    } else {
      ++walked_.count;
    }
  }

  /// Once rounds went undisturbed, those like them are only counted. What a cycle tells depends
  /// on the two before it, and none is longer than such rounds.
  void skipRounds(std::int64_t untilMs) {
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

  /// After so many rounds the points lie on the grid of the cycles as before.
  [[nodiscard]] std::uint64_t roundsOnGrid(const Rounds& rounds) const {
    const std::int64_t common = std::gcd(cycleMs_, rounds.periodMs());
    return static_cast<std::uint64_t>(std::max<std::int64_t>(cycleMs_ / common, 1));
  }

  /// What was told of the last rounds holds for those that follow.
  void tellAgain(const Walked& walked, const Rounds& rounds, std::uint64_t skipped,
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

  /// What the register holds after the latest cycle, but for the rounding of a line.
  [[nodiscard]] double valueNow() const {
    if (backlog_.empty() || start_.timeMs >= latestMs_ || backlog_.front().timeMs <= latestMs_) {
      return start_.value;
    }
    const Point& end = backlog_.front();
    return registerAt(Segment(start_, end, backlog_.knotOf(end)), latestMs_, cycleMs_,
                      {actuator_.minimum, actuator_.maximum});
  }

  /// Where the segment to a new first point begins. The library has no value of its own
  /// before its first pass, and then begins a cycle later.
  [[nodiscard]] SegmentStart presentStart() const {
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

  /// Of a step that the register took.
  [[nodiscard]] double velocityDoubtAt(double value) const {
    const auto single = static_cast<float>(value);
    return (2.0 * stepUlps * ulpOf(single, single) + start_.doubt) / static_cast<double>(cycleMs_) *
           1000.0;
  }

  const int index_;
  const simulation::Actuator& actuator_;
  const double maximumAcceleration_;
  const std::int64_t cycleMs_;
  Listener& listener_;
  std::int64_t latestMs_;
  Backlog backlog_;
  SegmentStart start_;
  /// What the register held a cycle before the latest one.
  double valueBefore_;
  Judge judge_;
  bool hasRun_ = false;
  Walked walked_;
  std::uint64_t walkedInAll_ = 0;
  bool gaveUp_ = false;
  PointCounts counts_;
};

class Rehearsal {
 public:
  Rehearsal(const MachineModel& machine, const Plan& plan, Listener& listener)
      : cycleMs_(plan.schedule.cycleMs), listener_(listener) {
    while (axes_.size() < machine.description.actuators.size()) {
      axes_.emplace_back(static_cast<int>(axes_.size()), machine, cycleMs_, listener);
    }
  }

  void handOver(const ScheduledBatch& batch, std::uint32_t number) {
    const std::int64_t latestMs = cycleBefore(batch.momentMs.value_or(0), cycleMs_);
    const std::vector<int>& actuators = batch.commands->actuators;
    std::vector<Rounds> points;
    Event fault;
    for (std::size_t column = 0; column < actuators.size(); ++column) {
      RehearsedAxis& axis = axisOf(actuators[column]);
      axis.goOnTo(latestMs);
      const Intake intake = axis.intake(batch, number, column);
      points.push_back(intake.points());
      if (fault.reason == Fault::none) {
        fault = axis.findFault(intake, points.back());
      }
    }
    for (std::size_t column = 0; column < actuators.size(); ++column) {
      RehearsedAxis& axis = axisOf(actuators[column]);
      if (fault.reason == Fault::none) {
        axis.take(axis.intake(batch, number, column), points[column]);
      } else {
        axis.refuse(points[column].size());
        fault.count += points[column].size();
      }
    }
    if (fault.reason != Fault::none) {
      listener_.tell(fault, nullptr);
    }
  }

  std::vector<PointCounts> finish() {
    std::vector<PointCounts> counts;
    for (RehearsedAxis& axis : axes_) {
      axis.finish();
      counts.push_back(axis.counts());
    }
    return counts;
  }

 private:
  [[nodiscard]] RehearsedAxis& axisOf(int actuator) {
    return axes_[static_cast<std::size_t>(actuator)];
  }

  const std::int64_t cycleMs_;
  Listener& listener_;
  std::vector<RehearsedAxis> axes_;
};

}  // namespace

std::vector<PointCounts> rehearse(const MachineModel& machine, const Plan& plan,
                                  Listener& listener) {
  std::vector<std::uint32_t> order(plan.batches.size());
  std::iota(order.begin(), order.end(), 0U);
  std::stable_sort(order.begin(), order.end(), [&](std::uint32_t one, std::uint32_t other) {
    return plan.batches[one].momentMs < plan.batches[other].momentMs;
  });
  Rehearsal rehearsal(machine, plan, listener);
  for (const std::uint32_t number : order) {
    rehearsal.handOver(plan.batches[number], number);
  }
  return rehearsal.finish();
}

}  // namespace host
