#include "host/plot/panel.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "host/values.h"

namespace host {
namespace {

using Dots = std::vector<Panel::Dot>;

/// Leaves out what lies on the straight line between its neighbours, as far as
/// `tolerance` can be seen.
Dots simplified(const Dots& curve, double tolerance) {
  if (curve.size() < 3) {
    return curve;
  }
  Dots kept = {curve.front()};
  double steepest = -HUGE_VAL;
  double flattest = HUGE_VAL;
  for (std::size_t i = 1; i < curve.size(); ++i) {
    const double way = curve[i].seconds - kept.back().seconds;
    const double slope = (curve[i].value - kept.back().value) / way;
    if (slope < steepest || slope > flattest) {
      kept.push_back(curve[--i]);
      steepest = -HUGE_VAL;
      flattest = HUGE_VAL;
      continue;
    }
    steepest = std::max(steepest, (curve[i].value - tolerance - kept.back().value) / way);
    flattest = std::min(flattest, (curve[i].value + tolerance - kept.back().value) / way);
  }
  kept.push_back(curve.back());
  return kept;
}

Dots recorded(const Recording& recording, std::size_t column, std::int64_t leadMs) {
  Dots curve;
  for (std::size_t row = 0; row < recording.rows(); ++row) {
    if (std::isfinite(recording.value(row, column))) {
      curve.push_back({(recording.timeMs(row) - static_cast<double>(leadMs)) / 1000.0,
                       recording.value(row, column)});
    }
  }
  return curve;
}

Dots commanded(const std::vector<CoursePoint>& points, std::int64_t leadMs) {
  Dots dots;
  for (const CoursePoint& point : points) {
    if (point.motion != nullptr) {
      dots.push_back({static_cast<double>(point.timeMs - leadMs) / 1000.0, point.value});
    }
  }
  return dots;
}

void coverRange(Panel& panel) {
  double least = HUGE_VAL;
  double most = -HUGE_VAL;
  for (const Dots* dots : {&panel.command, &panel.measured, &panel.reached, &panel.cleared}) {
    for (const Panel::Dot& dot : *dots) {
      least = std::min(least, dot.value);
      most = std::max(most, dot.value);
    }
  }
  if (least > most) {
    least = most = 0.0;
  }
  const double narrowest = std::max(0.01, 1e-3 * std::max(std::abs(least), std::abs(most)));
  const double widening = std::max(0.0, narrowest - (most - least)) / 2.0;
  panel.least = least - widening;
  panel.most = most + widening;
}

/// Limits are drawn unless they would press the motion flat.
void addLimits(const MovedActuator& actuator, Panel& panel) {
  const double span = panel.most - panel.least;
  const double lowest = panel.least - 0.75 * span;
  const double highest = panel.most + 0.75 * span;
  std::string offScale;
  for (const float limit : {actuator.minimum, actuator.maximum}) {
    if (limit >= lowest && limit <= highest) {
      panel.limits.push_back(limit);
      panel.least = std::min(panel.least, double{limit});
      panel.most = std::max(panel.most, double{limit});
    } else if (std::isfinite(limit)) {
      offScale += fmt::format("{}{:.3g}", offScale.empty() ? "" : ", ", limit);
    }
  }
  if (!offScale.empty()) {
    panel.title += fmt::format(" (limit {})", offScale);
  }
}

/// A cloud of dots would hide the curve and swell the file.
void leaveOutClouds(Panel& panel) {
  constexpr std::size_t mostDots = 400;
  const std::size_t dots = panel.reached.size() + panel.cleared.size();
  if (dots > mostDots) {
    panel.title += fmt::format(" ({} points not drawn)", dots);
    panel.reached.clear();
    panel.cleared.clear();
  }
}

/// Those that stand at one place are written as one; of very many, the modes are
/// left out.
void addHandOvers(const PlannedActuator& planned, std::int64_t leadMs, double lastSecond,
                  Panel& panel) {
  constexpr std::size_t mostLabels = 24;
  for (const PlannedList& list : planned.lists) {
    const double seconds = static_cast<double>(list.handOverMs - leadMs) / 1000.0;
    if (!list.motion->atMs || seconds > lastSecond) {
      continue;
    }
    const std::string mode = modeName(list.mode);
    if (panel.handOvers.empty() || panel.handOvers.back().seconds != seconds) {
      panel.handOvers.push_back({seconds, mode});
    } else if (panel.handOvers.back().modes.find(mode) == std::string::npos) {
      panel.handOvers.back().modes += ", " + mode;
    }
  }
  if (panel.handOvers.size() > mostLabels) {
    for (Panel::HandOver& handOver : panel.handOvers) {
      handOver.modes.clear();
    }
  }
}

/// A run that was stopped did not come to them.
void leaveOutBehind(double lastSecond, Dots& dots) {
  dots.erase(std::remove_if(dots.begin(), dots.end(),
                            [&](const Panel::Dot& dot) { return dot.seconds > lastSecond; }),
             dots.end());
}

}  // namespace

std::vector<Panel> panelsOf(const Torvex& torvex, const Plan& plan) {
  const std::int64_t leadMs = plan.schedule.leadMs;
  const Recording& recording = torvex.recording();
  const double lastSecond =
      (recording.timeMs(recording.rows() - 1) - static_cast<double>(leadMs)) / 1000.0;
  std::vector<Panel> panels;
  for (std::size_t i = 0; i < plan.actuators.size(); ++i) {
    const MovedActuator& actuator = torvex.actuators()[i];
    Panel panel;
    constexpr std::size_t mostTitleColumns = 30;
    panel.title = cutInFront(actuator.name, mostTitleColumns);
    panel.command = recorded(recording, actuator.commandColumn, leadMs);
    if (actuator.measuredColumn) {
      panel.measured = recorded(recording, *actuator.measuredColumn, leadMs);
    }
    panel.reached = commanded(plan.actuators[i].course.path, leadMs);
    leaveOutBehind(lastSecond, panel.reached);
    panel.cleared = commanded(plan.actuators[i].course.cleared, leadMs);
    coverRange(panel);
    addLimits(actuator, panel);
    leaveOutClouds(panel);
    addHandOvers(plan.actuators[i], leadMs, lastSecond, panel);
    constexpr double visible = 1.0 / 1000.0;
    const double tolerance = visible * (panel.most - panel.least);
    panel.command = simplified(panel.command, tolerance);
    panel.measured = simplified(panel.measured, tolerance);
    panels.push_back(std::move(panel));
  }
  return panels;
}

}  // namespace host
