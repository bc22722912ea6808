#include "host/course.h"

#include <algorithm>
#include <limits>

#include "host/commandqueue.h"

namespace host {
namespace {

class CourseBuilder {
 public:
  CourseBuilder(const simulation::Actuator& actuator, const Schedule& schedule)
      : actuator_(actuator), schedule_(schedule) {}

  Course build(const std::vector<PlannedList>& lists) {
    for (const PlannedList& list : lists) {
      handOver(list);
    }
    reach(std::numeric_limits<std::int64_t>::max());
    return std::move(course_);
  }

 private:
  void handOver(const PlannedList& list) {
    const std::int64_t lastCycleMs = schedule_.cycleBefore(list.handOverMs);
    reach(lastCycleMs);
    course_.stopsOnTheWay = list.items.empty() && !queue_.empty();
    if (!list.items.empty() || !queue_.empty() || course_.path.empty()) {
      course_.path.push_back({lastCycleMs, valueAt(lastCycleMs)});
    }
    for (const QueuedItem& item : pushList(queue_, list)) {
      if (item.point != PlannedItem::ownPoint) {
        course_.cleared.push_back(pointOf(item));
      }
    }
  }

  void reach(std::int64_t timeMs) {
    while (!queue_.empty() && queue_.front().timeMs <= timeMs) {
      CoursePoint reached = pointOf(queue_.front());
      // What comes too late is reached as soon as it is there.
      reached.timeMs = std::max(reached.timeMs, course_.path.back().timeMs);
      course_.path.push_back(reached);
      queue_.pop_front();
    }
  }

  [[nodiscard]] double valueAt(std::int64_t timeMs) const {
    if (course_.path.empty()) {
      return initialNumber(actuator_);
    }
    const CoursePoint& last = course_.path.back();
    if (queue_.empty() || !actuator_.interpolates || timeMs <= last.timeMs) {
      return last.value;
    }
    const CoursePoint next = pointOf(queue_.front());
    const double share =
        static_cast<double>(timeMs - last.timeMs) / static_cast<double>(next.timeMs - last.timeMs);
    return last.value + (next.value - last.value) * share;
  }

  [[nodiscard]] CoursePoint pointOf(const QueuedItem& item) const {
    return {item.timeMs, commandedNumber(actuator_, item.value),
            item.point == PlannedItem::ownPoint ? nullptr : item.motion, item.point};
  }

  const simulation::Actuator& actuator_;
  const Schedule& schedule_;
  CommandQueue queue_;
  Course course_;
};

}  // namespace

double commandedNumber(const simulation::Actuator& actuator, const hal::AttrGeneric& value) {
  return actuator.typeCode == hal::floatTypeCode ? double{value.asFloat}
                                                 : static_cast<double>(value.asInt);
}

double initialNumber(const simulation::Actuator& actuator) {
  const auto* const integer = std::get_if<std::int32_t>(&actuator.value);
  return integer != nullptr ? static_cast<double>(*integer)
                            : double{std::get<float>(actuator.value)};
}

Course courseOf(const PlannedActuator& planned, const simulation::Actuator& actuator,
                const Schedule& schedule) {
  return CourseBuilder(actuator, schedule).build(planned.lists);
}

}  // namespace host
