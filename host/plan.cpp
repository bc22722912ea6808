#include "host/plan.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "host/window.h"

namespace host {
namespace {

/// The most cycles between two items: half a unit in the last place a cycle
/// then stays below 1e-5 for values up to 4.
constexpr std::int64_t longestPartCycles = 200;
/// Of all ways of a run; a part takes some 60 bytes.
constexpr std::int64_t mostParts = 5'000'000;

/// Of the late items but the first, which may decide what is cleared, and the last.
void leaveOutPassedOver(PlannedList& list) {
  const auto late =
      std::count_if(list.items.begin(), list.items.end(),
                    [&list](const PlannedItem& item) { return item.timeMs < list.handOverMs; });
  constexpr auto kept = static_cast<std::ptrdiff_t>(mostLateItems);
  if (late > kept) {
    list.items.erase(list.items.begin() + 1, list.items.begin() + 1 + late - kept);
  }
}

PlannedList plannedList(const Motion& motion, std::size_t column, const Schedule& schedule) {
  PlannedList list;
  list.motion = &motion;
  list.handOverMs = motion.atMs ? std::int64_t{schedule.leadMs} + *motion.atMs : 0;
  list.mode = motion.mode;
  for (std::size_t point = 0; point < motion.times.size(); ++point) {
    list.items.push_back({std::int64_t{schedule.leadMs} + motion.fromMs + motion.times[point],
                          motion.value(point, column), static_cast<std::uint32_t>(point)});
  }
  leaveOutPassedOver(list);
  return list;
}

/// Begins with where the actuator stands. The first point is approached no
/// further than the actuator can go: the lead would not suffice for more.
void addApproach(const simulation::Actuator& actuator, PlannedList& list) {
  hal::AttrGeneric& first = list.items.front().value;
  first = hal::AttrGeneric(std::clamp(first.asFloat, actuator.minimum, actuator.maximum));
  const hal::AttrGeneric present(std::get<float>(actuator.value));
  list.items.insert(list.items.begin(), {0, present, PlannedItem::ownPoint});
}

/// Adds to `parts` how many there are.
void cutLongWays(std::uint32_t cycleMs, PlannedList& list, std::int64_t& parts) {
  const std::int64_t partMs = longestPartCycles * cycleMs;
  std::vector<PlannedItem> cut;
  for (const PlannedItem& end : list.items) {
    if (!cut.empty() && cut.back().timeMs >= list.handOverMs) {
      const PlannedItem begin = cut.back();
      parts += (end.timeMs - begin.timeMs) / partMs;
      if (parts > mostParts) {
        throw InputError(
            list.motion->path, list.motion->places[end.point],
            fmt::format("the ways up to here take more than {} parts of {} cycles of {} ms; use a "
                        "longer --cycle",
                        mostParts, longestPartCycles, cycleMs));
      }
      const double way = double{end.value.asFloat} - double{begin.value.asFloat};
      const auto duration = static_cast<double>(end.timeMs - begin.timeMs);
      for (std::int64_t passed = partMs; begin.timeMs + passed < end.timeMs; passed += partMs) {
        const double share = static_cast<double>(passed) / duration;
        cut.push_back({begin.timeMs + passed,
                       hal::AttrGeneric(static_cast<float>(begin.value.asFloat + way * share)),
                       PlannedItem::ownPoint});
      }
    }
    cut.push_back(end);
  }
  list.items = std::move(cut);
}

void addList(const simulation::Actuator& actuator, PlannedList&& list,
             std::vector<PlannedList>& lists) {
  if (!list.motion->atMs) {
    const auto other = std::find_if(lists.begin(), lists.end(), [](const PlannedList& present) {
      return !present.motion->atMs;
    });
    if (other != lists.end()) {
      throw InputError(list.motion->path, list.motion->place,
                       fmt::format("'{}' is moved by {} already; put one of the two into a list, "
                                   "with the moment of its hand-over",
                                   actuator.name, other->motion->path));
    }
  }
  lists.push_back(std::move(list));
}

}  // namespace

Plan planRun(const MachineFile& machine, const std::vector<Motion>& motions, const Timing& timing) {
  Plan plan;
  plan.schedule = planSchedule(machine, motions, timing);
  std::map<int, std::vector<PlannedList>> commanded;
  for (const Motion& motion : motions) {
    for (std::size_t column = 0; column < motion.actuators.size(); ++column) {
      const int index = motion.actuators[column];
      const auto& actuator = machine.actuator(index);
      PlannedList list = plannedList(motion, column, plan.schedule);
      if (!motion.atMs && actuator.interpolates) {
        addApproach(actuator, list);
      }
      addList(actuator, std::move(list), commanded[index]);
    }
  }
  std::int64_t parts = 0;
  for (auto& [index, lists] : commanded) {
    std::stable_sort(lists.begin(), lists.end(), [](const auto& one, const auto& other) {
      return one.handOverMs < other.handOverMs;
    });
    const auto& actuator = machine.actuator(index);
    const bool alone = lists.size() == 1 && lists.front().mode != TimedCommand::CLEAR_BEFORE;
    if (alone && actuator.interpolates) {
      cutLongWays(plan.schedule.cycleMs, lists.front(), parts);
    }
    Course course = courseOf(lists, actuator, plan.schedule);
    plan.actuators.push_back({index, std::move(lists), std::move(course)});
  }
  return plan;
}

std::vector<std::string> lateItems(const std::vector<Motion>& motions) {
  std::vector<std::string> texts;
  for (const Motion& motion : motions) {
    const std::uint32_t atMs = motion.atMs.value_or(0);
    const auto late =
        std::count_if(motion.times.begin(), motion.times.end(),
                      [&](std::uint32_t timeMs) { return motion.fromMs + timeMs < atMs; });
    if (late > 0) {
      texts.push_back(fmt::format("{}:{}:{}: warning: {} of {} items late by {} ms", motion.path,
                                  motion.place.line, motion.place.column, late, motion.times.size(),
                                  atMs - motion.fromMs - motion.times.front()));
    }
  }
  return texts;
}

}  // namespace host
