#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "host/input/machinemodel.h"
#include "host/motion/event.h"
#include "host/motion/segment.h"

namespace host {

// What the register of an axis does in its cycles, of which P and T follow each other:
//
// The cycle at T takes all points that are due before T, and of those due at T the first one.
// Where it takes none, the register goes on along the segment under way. Otherwise let p be the
// last point that it takes. What lay before p was never held. The register holds p where p is
// due at T, where nothing follows, and on axes that do not interpolate. Else it lies at T on
// the segment from p to the next point, which begins when p was due, or at P if that is later.
//
// So of points with the same time T the cycle at T takes the first, and the next cycle all
// others, together with the first part of the segment behind them; a late point is a jump at
// once, and part of the segment behind it comes on top. Where the library begins anew, it holds
// the register for one cycle first.
//
// Hence two kinds of steps: those along one segment from cycle to cycle, which are no larger
// than its highest velocity has them; and one for each cycle that takes a point in any other way
// than arriving, at the end of a segment, with the cycle.

/// A point, and how the segment to it runs.
struct Aim {
  Point point;
  Knot knot;
};

/// A cycle that took points.
struct Taking {
  std::int64_t timeMs = 0;
  /// The cycle before.
  std::int64_t previousMs = 0;
  /// Of the segment to the first of them.
  SegmentStart start;
  /// In order, one at least.
  const std::vector<Aim>& points;
  /// What comes behind them.
  std::optional<Aim> next;
};

/// Judges the steps of one axis: tells of those that are larger than the actuator and what
/// follows it may move, of velocities that change faster than they may, and of curves, and
/// followers, that leave their limits. An event names the point that asks for it.
///
/// The guard measures what the cycles do. Where it would see a step as too large, so does this,
/// given the same path: values that rounding makes uncertain count as larger by so much. Of a
/// stop, whose end is the host's, nothing is told.
/// Accelerations are those of the path itself, without what samples and rounding make of it.
class Judge {
 public:
  /// The machine must outlive it.
  Judge(const MachineModel& machine, int actuator, std::int64_t cycleMs);

  /// The path goes on anew after this cycle, by what this batch did; `Event::byOthers` where it
  /// was no batch, or a stop.
  void begin(std::int64_t latestMs, const SegmentStart& start, std::uint32_t byBatch);
  /// The cycles up to this one went along a segment.
  void follow(const SegmentStart& start, const Aim& aim, std::int64_t untilMs, Listener& listener);
  /// A cycle took points; those before it are followed.
  void reach(const Taking& taking, Listener& listener);
  /// Nothing waited, and the cycles up to this one held.
  void rest(std::int64_t untilMs, Listener& listener);
  /// Whether it still has to be seen how the axis comes to rest.
  [[nodiscard]] bool isMoving() const { return velocity_ != 0.0 && knowsAcceleration(); }

  /// Passes over so many points of undisturbed rounds, which take so long.
  void skip(std::int64_t ms, std::uint32_t points);

 private:
  /// What limits the axis, in its own units: its own limits, or those of a follower.
  struct Bound {
    double maximumVelocity = std::numeric_limits<double>::infinity();
    Range range;
    /// In the machine model; -1 for its own limits.
    int follower = -1;
  };
  /// A step of one cycle.
  struct Step {
    double from = 0.0;
    double to = 0.0;
    double stepMs = 1.0;
    /// How much larger it may be.
    double doubt = 0.0;
    bool isExact = false;
  };

  [[nodiscard]] bool knowsAcceleration() const {
    return maximumAcceleration_ < std::numeric_limits<double>::infinity();
  }
  [[nodiscard]] bool isTooLarge(const Bound& bound, const Step& step) const;
  [[nodiscard]] Event eventOf(EventKind kind, const Point& named, const Bound& bound) const;
  void judgeSpeed(const Segment& segment, const SegmentStart& start, const Aim& aim,
                  std::int64_t untilMs, Listener& listener) const;
  void judgeRange(const Segment& segment, const Aim& aim, std::int64_t untilMs,
                  Listener& listener) const;
  void judgeAcceleration(const Segment& segment, const Aim& aim, std::int64_t fromMs,
                         std::int64_t untilMs, Listener& listener) const;
  void judgeChange(double velocity, double stepMs, double timeMs, const Point& named,
                   Listener& listener) const;
  void judgePoints(const Taking& taking, Listener& listener) const;
  void judgeStep(const Taking& taking, const Step& step, Listener& listener) const;
  [[nodiscard]] static const Point& causeOf(const Taking& taking, const Step& step,
                                            const simulation::Actuator& actuator);

  const simulation::Actuator& actuator_;
  const int index_;
  const std::int64_t cycleMs_;
  const double maximumAcceleration_;
  std::vector<Bound> bounds_;
  /// Whether any of them limits velocities.
  bool limitsSteps_ = false;

  /// The latest cycle that was judged; what the register held after it, and by how much that
  /// is uncertain.
  std::int64_t lastMs_;
  double value_;
  double doubt_ = 0.0;
  /// Whether the register held just that, without rounding.
  bool isExact_ = true;
  /// Where the path was then, and its velocity over that cycle in units a second.
  double path_;
  double velocity_ = 0.0;
  /// The point where the segment under way begins; none where a batch took over.
  std::optional<Point> corner_;
  /// What is named where nothing follows.
  std::uint32_t emptiedBy_ = Event::byOthers;
};

}  // namespace host
