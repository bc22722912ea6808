#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "host/motion/backlog.h"
#include "host/motion/intake.h"
#include "host/motion/judgement.h"
#include "host/motion/limits.h"
#include "host/motion/pointcounts.h"
#include "host/motion/segment.h"

namespace host {

/// One axis of a rehearsal, advanced from change to change.
class RehearsedAxis {
 public:
  /// Gives up after so many points that it had to follow one by one. The machine and the listener
  /// must outlive the object.
  RehearsedAxis(int index, const MachineModel& machine, std::int64_t cycleMs,
                std::uint64_t mostWalkedPoints, Listener& listener)
      : index_(index),
        actuator_(machine.actuator(index)),
        maximumAcceleration_(machine.maximumAcceleration(index)),
        cycleMs_(cycleMs),
        mostWalked_(mostWalkedPoints),
        listener_(listener),
        latestMs_(-cycleMs),
        start_(restingAt(0, commandedNumber(actuator_, initialRecord(actuator_)))),
        valueBefore_(start_.value),
        held_(start_.value),
        judge_(machine, index, cycleMs) {}

  /// Runs all cycles up to this one.
  void goOnTo(std::int64_t cycleMs);

  [[nodiscard]] Intake intake(const ScheduledBatch& batch, std::uint32_t number,
                              std::size_t column) const {
    return {batch, number, column, actuator_, latestMs_, cycleMs_};
  }
  /// Why this cannot be taken; of no reason where it can.
  [[nodiscard]] Event findFault(const Intake& intake, const Rounds& points);
  void take(const Intake& intake, const Rounds& points);
  void refuse(std::uint64_t points);
  /// Runs all cycles that there are.
  void finish();

  /// What the register holds after the latest cycle, but for rounding.
  [[nodiscard]] double value() const { return actuator_.interpolates ? valueNow() : held_; }
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

  Backlog::Removed stop(const SegmentStart& present, std::uint32_t batch);
  [[nodiscard]] std::int64_t reachingCycle(const Point& point) const;
  void run(std::int64_t cycleMs);
  void runTo(std::int64_t cycleMs);
  [[nodiscard]] std::optional<Aim> nextAim() const;
  void judge(const Taking& taking);

  /// Keeps count of points of one batch that follow each other, each reached in its cycle.
  void noteWalked(const Point& point, std::int64_t cycleMs);

  /// Once rounds went undisturbed, those like them are only counted. What a cycle tells depends
  /// on the two before it, and none is longer than such rounds.
  void skipRounds(std::int64_t untilMs);

  /// After so many rounds the points lie on the grid of the cycles as before.
  [[nodiscard]] std::uint64_t roundsOnGrid(const Rounds& rounds) const;

  /// What was told of the last rounds holds for those that follow.
  void tellAgain(const Walked& walked, const Rounds& rounds, std::uint64_t skipped,
                 std::uint32_t next);

  /// What the register holds after the latest cycle, but for the rounding of a line.
  [[nodiscard]] double valueNow() const;

  /// Where the segment to a new first point begins. The library has no value of its own
  /// before its first pass, and then begins a cycle later.
  [[nodiscard]] SegmentStart presentStart() const;

  /// Of a step that the register took.
  [[nodiscard]] double velocityDoubtAt(double value) const;

  const int index_;
  const simulation::Actuator& actuator_;
  const double maximumAcceleration_;
  const std::int64_t cycleMs_;
  const std::uint64_t mostWalked_;
  Listener& listener_;
  std::int64_t latestMs_;
  Backlog backlog_;
  SegmentStart start_;
  /// What the register held a cycle before the latest one.
  double valueBefore_;
  /// Of an axis that does not interpolate: what its register holds.
  double held_;
  Judge judge_;
  bool hasRun_ = false;
  Walked walked_;
  std::uint64_t walkedInAll_ = 0;
  bool gaveUp_ = false;
  PointCounts counts_;
};

}  // namespace host
