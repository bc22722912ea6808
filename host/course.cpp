#include "host/course.h"

#include <fmt/format.h>

#include <limits>

#include "host/commandqueue.h"
#include "host/window.h"

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
    takeLate();
    reach(std::numeric_limits<std::int64_t>::max());
    return std::move(course_);
  }

 private:
  void handOver(const PlannedList& list) {
    const std::int64_t lastCycleMs = schedule_.cycleBefore(list.handOverMs);
    if (lastCycleMs > lastCycleMs_) {
      takeLate();
      lastCycleMs_ = lastCycleMs;
      reach(lastCycleMs);
    }
    course_.stopsOnTheWay = list.items.empty() && (course_.stopsOnTheWay || !queue_.empty());
    if (course_.path.empty()) {
      // The very first way begins in the cycle that finds it.
      course_.path.push_back({lastCycleMs + schedule_.cycleMs, initialNumber(actuator_)});
    } else if (!list.items.empty() || !queue_.empty()) {
      course_.path.push_back({lastCycleMs, valueAt(lastCycleMs)});
    }
    for (const QueuedItem& item : pushList(queue_, list)) {
      if (item.point != PlannedItem::ownPoint) {
        course_.cleared.push_back(pointOf(item));
      }
    }
    checkDensity();
  }

  void reach(std::int64_t timeMs) {
    for (std::size_t due = dueCount(queue_, timeMs); due > 0; --due) {
      course_.path.push_back(pointOf(queue_.front()));
      queue_.pop_front();
    }
  }

  /// Of items that came too late, the actuator goes to the last in the first cycle after
  /// their hand-over. Until then another list may clear them.
  void takeLate() {
    std::size_t late = 0;
    while (late < queue_.size() && queue_[late].timeMs <= lastCycleMs_) {
      ++late;
    }
    if (late > 0) {
      course_.path.push_back(pointOf(queue_[late - 1]));
      course_.path.back().timeMs = lastCycleMs_;
      queue_.erase(queue_.begin(), queue_.begin() + static_cast<std::ptrdiff_t>(late));
    }
  }

  void checkDensity() const {
    const std::int64_t spanMs = std::int64_t{windowCycles} * schedule_.cycleMs;
    for (std::size_t i = mostItemsInWindow; i < queue_.size(); ++i) {
      const QueuedItem& item = queue_[i];
      if (item.timeMs - queue_[i - mostItemsInWindow].timeMs < spanMs &&
          item.point != PlannedItem::ownPoint) {
        throw InputError(
            item.motion->path, item.motion->places[item.point],
            fmt::format("more than {} commands for '{}' within {} cycles of {} ms; use "
                        "a shorter --cycle",
                        mostItemsInWindow, actuator_.name, windowCycles, schedule_.cycleMs));
      }
    }
  }

  [[nodiscard]] double valueAt(std::int64_t timeMs) const {
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
  /// The last cycle before the latest hand-over.
  std::int64_t lastCycleMs_ = std::numeric_limits<std::int64_t>::min();
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

Course courseOf(const std::vector<PlannedList>& lists, const simulation::Actuator& actuator,
                const Schedule& schedule) {
  return CourseBuilder(actuator, schedule).build(lists);
}

}  // namespace host
