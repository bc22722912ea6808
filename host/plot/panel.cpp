#include "host/plot/panel.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

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
    curve.push_back(
        {(recording.at(row, 0) - static_cast<double>(leadMs)) / 1000.0, recording.at(row, column)});
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
    panel.title += fmt::format(" (off scale: limit {})", offScale);
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

void addHandOvers(const PlannedActuator& planned, std::int64_t leadMs, Panel& panel) {
  for (const PlannedList& list : planned.lists) {
    if (list.motion->atMs) {
      panel.handOvers.push_back(
          {static_cast<double>(list.handOverMs - leadMs) / 1000.0, modeName(list.mode)});
    }
  }
}

}  // namespace

std::vector<Panel> panelsOf(const Torvex& torvex, const Plan& plan) {
  const std::int64_t leadMs = plan.schedule.leadMs;
  std::vector<Panel> panels;
  std::size_t column = 1;
  for (std::size_t i = 0; i < plan.actuators.size(); ++i) {
    const MovedActuator& actuator = torvex.actuators()[i];
    Panel panel;
    panel.title = actuator.name;
    panel.command = recorded(torvex.recording(), column++, leadMs);
    if (actuator.measured != nullptr) {
      panel.measured = recorded(torvex.recording(), column++, leadMs);
    }
    panel.reached = commanded(torvex.courses()[i].path, leadMs);
    panel.cleared = commanded(torvex.courses()[i].cleared, leadMs);
    coverRange(panel);
    addLimits(actuator, panel);
    leaveOutClouds(panel);
    addHandOvers(plan.actuators[i], leadMs, panel);
    constexpr double visible = 1.0 / 1000.0;
    const double tolerance = visible * (panel.most - panel.least);
    panel.command = simplified(panel.command, tolerance);
    panel.measured = simplified(panel.measured, tolerance);
    panels.push_back(std::move(panel));
  }
  return panels;
}

}  // namespace host
