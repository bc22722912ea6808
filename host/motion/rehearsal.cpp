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
        valueBefore_(start_.value) {}

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
    if (!goesOn) {
      if (hadFirst && latestMs_ > start_.timeMs && first.timeMs > latestMs_) {
        judge(first, firstKnot, latestMs_);
      }
      start_ = present;
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
    if (gaveUp_) {
      const Point& next = backlog_.front();
      Event uncertain{EventKind::uncertain, Fault::none, latestMs_, next.batch, index_, next.index};
      uncertain.count = counts_.left();
      listener_.tell(uncertain, nullptr);
    }
  }

  [[nodiscard]] const PointCounts& counts() const { return counts_; }

 private:
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
    std::vector<Point> reached;
    const std::size_t count = reachedCount(backlog_.size(), cycleMs,
                                           [this](std::size_t i) { return backlog_[i].timeMs; });
    for (std::size_t i = 0; i < count; ++i) {
      const Point point = backlog_.front();
      const Knot knot = backlog_.knotOf(point);
      backlog_.popFront();
      judge(point, knot, point.timeMs);
      noteWalked(point, cycleMs);
      start_ = startAt(point, knot, cycleMs - cycleMs_);
      if (!point.isOfHost) {
        reached.push_back(point);
      }
    }
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

  void judge(const Point& end, const Knot& knot, std::int64_t untilMs) {
    if (!actuator_.interpolates || end.isOfHost) {
      return;
    }
    const Event event{EventKind::steep, Fault::none, latestMs_, end.batch, index_, end.index, 1};
    const Rounds* const rounds = backlog_.onlyRounds();
    for (const Event& told :
         judgeSegment(actuator_, {start_, end, knot, untilMs, cycleMs_}, event)) {
      listener_.tell(told, &end);
      if (rounds != nullptr && rounds->first().front().batch == end.batch) {
        walked_.told.emplace_back(told, end);
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

  /// Once a whole round went undisturbed, those like it are only counted.
  void skipRounds(std::int64_t untilMs) {
    const Rounds* const rounds = backlog_.onlyRounds();
    if (rounds == nullptr || !rounds->rises() || walked_.count <= rounds->sizeOfRound() ||
        walked_.batch != rounds->first().front().batch) {
      return;
    }
    const Walked walked = std::exchange(walked_, {});
    const Point next = backlog_.front();
    const std::uint64_t each = rounds->sizeOfRound();
    const std::int64_t periodMs = rounds->periodMs();
    const std::uint64_t skipped = next.batch == walked.batch ? backlog_.skipRounds(untilMs) : 0;
    if (skipped == 0) {
      return;
    }
    start_.timeMs += static_cast<std::int64_t>(skipped) * periodMs;
    // The cycle of the last of them may reach the next one as well.
    latestMs_ = cycleBefore(backlog_.front().timeMs, cycleMs_);
    for (auto [event, end] : walked.told) {
      if (end.index + each >= next.index) {
        end.index += static_cast<std::uint32_t>(each);
        end.timeMs += periodMs;
        event.point = end.index;
        event.momentMs += static_cast<double>(periodMs);
        event.rounds = skipped;
        listener_.tell(event, &end);
      }
    }
    counts_.reached += skipped * each;
    Event reached{EventKind::reached, Fault::none, cycleBefore(start_.timeMs, cycleMs_) + cycleMs_,
                  next.batch,         index_,      next.index};
    reached.count = skipped * each;
    listener_.tell(reached, nullptr);
  }

  /// What the register holds after the latest cycle, but for the rounding of a line.
  [[nodiscard]] double valueNow() const {
    if (backlog_.empty() || start_.timeMs >= latestMs_ || backlog_.front().timeMs <= latestMs_) {
      return start_.value;
    }
    const Point& end = backlog_.front();
    const double value = Segment(start_, end, backlog_.knotOf(end)).valueAt(latestMs_);
    return std::clamp(value, actuator_.minimum, actuator_.maximum);
  }

  /// Where the segment to a new first point begins. The library has no value of its own
  /// before its first pass, and then begins a cycle later.
  [[nodiscard]] SegmentStart presentStart() const {
    const double value = valueNow();
    return hasRun_ ? movingAt(latestMs_, value, value - valueBefore_, cycleMs_)
                   : restingAt(latestMs_ + cycleMs_, value);
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
  bool hasRun_ = false;
  /// What went by since the last change.
  struct Walked {
    std::uint32_t batch = 0;
    std::uint64_t count = 0;
    std::vector<std::pair<Event, Point>> told;
    void clear() { *this = Walked(); }
  };
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
