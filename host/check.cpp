#include "host/check.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "host/course.h"

namespace host {
namespace {

/// The worst of several faults of one kind in one motion.
struct Worst {
  double excess = 0.0;
  std::string text;
  const CoursePoint* place = nullptr;
  const CoursePoint* latest = nullptr;
  int count = 0;

  void add(double candidate, const CoursePoint& point, const std::string& what) {
    count += &point == latest ? 0 : 1;
    latest = &point;
    if (candidate > excess || place == nullptr) {
      excess = candidate;
      place = &point;
      text = what;
    }
  }
};

class LimitChecker {
 public:
  LimitChecker(int index, const simulation::Actuator& actuator, const Schedule& schedule)
      : index_(index), actuator_(actuator), schedule_(schedule) {}

  std::vector<std::string> check(const Course& course) {
    for (std::size_t i = 0; i < course.path.size(); ++i) {
      checkTarget(course.path[i]);
      if (i > 0 && actuator_.interpolates) {
        checkSlope(course.path, i);
      }
    }
    for (const CoursePoint& point : course.cleared) {
      checkTarget(point);
    }
    std::vector<std::string> texts;
    report(targets_, "point", texts);
    report(slopes_, "way", texts);
    return texts;
  }

 private:
  void checkTarget(const CoursePoint& point) {
    if (point.motion == nullptr) {
      return;
    }
    const double asked = askedValue(point);
    const bool below = asked < double{actuator_.minimum};
    if (!below && asked <= double{actuator_.maximum}) {
      return;
    }
    const float limit = below ? actuator_.minimum : actuator_.maximum;
    targets_[point.motion].add(
        std::abs(asked - double{limit}), point,
        fmt::format("{} is to be {:.6g} at {:.3f} s, {} its {} {:.6g}", actuator_.name, asked,
                    seconds(point), below ? "below" : "above", below ? "minimum" : "maximum",
                    limit));
  }

  /// The first point of an approach was moved into the limits.
  [[nodiscard]] double askedValue(const CoursePoint& point) const {
    const std::vector<int>& columns = point.motion->actuators;
    const auto column = std::find(columns.begin(), columns.end(), index_) - columns.begin();
    return commandedNumber(actuator_,
                           point.motion->value(point.point, static_cast<std::size_t>(column)));
  }

  /// The way that ends at point `end`, on the way to a point that a motion asks for.
  void checkSlope(const std::vector<CoursePoint>& path, std::size_t end) {
    const CoursePoint& from = path[end - 1];
    const CoursePoint& to = path[end];
    // A jump takes the cycle in which it happens.
    const std::int64_t durationMs =
        to.timeMs > from.timeMs ? to.timeMs - from.timeMs : schedule_.cycleMs;
    const double slope = std::abs(to.value - from.value) / static_cast<double>(durationMs) * 1000.0;
    constexpr double rounding = 1.0001;
    if (slope <= double{actuator_.maximumVelocity} * rounding) {
      return;
    }
    const auto asked =
        std::find_if(path.begin() + static_cast<std::ptrdiff_t>(end), path.end(),
                     [](const CoursePoint& point) { return point.motion != nullptr; });
    if (asked == path.end()) {
      return;
    }
    slopes_[asked->motion].add(
        slope, *asked,
        fmt::format("{} moves {:.4g} a second to be {:.6g} at {:.3f} s, above its limit {:.4g}",
                    actuator_.name, slope, asked->value, seconds(*asked),
                    actuator_.maximumVelocity));
  }

  [[nodiscard]] double seconds(const CoursePoint& point) const {
    return static_cast<double>(point.timeMs - schedule_.leadMs) / 1000.0;
  }

  static void report(const std::map<const Motion*, Worst>& faults, const char* what,
                     std::vector<std::string>& texts) {
    for (const auto& [motion, worst] : faults) {
      const Position place = motion->places[worst.place->point];
      const std::string others =
          worst.count > 1 ? fmt::format(" (the worst of {} {}s)", worst.count, what) : "";
      texts.push_back(fmt::format("{}:{}:{}: warning: {}{}", motion->path, place.line, place.column,
                                  worst.text, others));
    }
  }

  const int index_;
  const simulation::Actuator& actuator_;
  const Schedule& schedule_;
  std::map<const Motion*, Worst> targets_;
  std::map<const Motion*, Worst> slopes_;
};

}  // namespace

std::vector<std::string> limitWarnings(const MachineFile& machine, const Plan& plan) {
  std::vector<std::string> texts;
  for (const PlannedActuator& planned : plan.actuators) {
    const auto found = LimitChecker(planned.index, machine.actuator(planned.index), plan.schedule)
                           .check(planned.course);
    texts.insert(texts.end(), found.begin(), found.end());
  }
  return texts;
}

}  // namespace host
