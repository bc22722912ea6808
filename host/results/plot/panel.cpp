#include "host/results/plot/panel.h"

#include <fmt/format.h>
#include <fnmatch.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "host/base/clocks.h"
#include "host/base/values.h"
#include "host/base/visible.h"
#include "host/motion/limits.h"

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

Dots recorded(const SampleHistory& history, std::size_t column) {
  Dots curve;
  for (std::size_t row = 0; row < history.rows(); ++row) {
    if (std::isfinite(history.value(row, column))) {
      curve.push_back({history.motionMs(row) / 1000.0, history.value(row, column)});
    }
  }
  return curve;
}

Dots commanded(const std::vector<RunLog::Dot>& points, const simulation::Actuator& actuator,
               std::int64_t approachMs) {
  Dots dots;
  for (const RunLog::Dot& point : points) {
    dots.push_back({inSeconds(point.timeMs - approachMs), commandedNumber(actuator, point.value)});
  }
  return dots;
}

/// Of each row and the one before, half-way between them.
Dots velocities(const Dots& curve) {
  Dots result;
  for (std::size_t i = 1; i < curve.size(); ++i) {
    const double seconds = curve[i].seconds - curve[i - 1].seconds;
    if (seconds > 0.0) {
      result.push_back(
          {curve[i].seconds - seconds / 2.0, (curve[i].value - curve[i - 1].value) / seconds});
    }
  }
  return result;
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
void addLimits(double minimum, double maximum, Panel& panel) {
  const double span = panel.most - panel.least;
  const double lowest = panel.least - 0.75 * span;
  const double highest = panel.most + 0.75 * span;
  std::string offScale;
  for (const double limit : {minimum, maximum}) {
    if (limit >= lowest && limit <= highest) {
      panel.limits.push_back(limit);
      panel.least = std::min(panel.least, limit);
      panel.most = std::max(panel.most, limit);
    } else if (std::isfinite(limit)) {
      offScale += fmt::format("{}{:.3g}", offScale.empty() ? "" : ", ", limit);
    }
  }
  if (!offScale.empty()) {
    panel.title += fmt::format(" (limit {})", offScale);
  }
}

void leaveOutClouds(const RunLog::AxisLog& log, Panel& panel) {
  if (log.dots > RunLog::mostDots) {
    panel.title += fmt::format(" ({} points not drawn)", log.dots);
    panel.reached.clear();
    panel.cleared.clear();
    panel.limited.clear();
  }
}

/// Hand-overs at one moment share a label; with very many, labels are left out.
void addHandOvers(const RunLog::AxisLog& log, const Plan& plan, Panel& panel) {
  constexpr std::size_t mostLabels = 24;
  for (const std::uint32_t number : log.batches) {
    if (number >= plan.batches.size() || !plan.batches[number].commands->atMs) {
      continue;  // of a client, or of no moment
    }
    const CommandBatch& commands = *plan.batches[number].commands;
    const double seconds = inSeconds(*commands.atMs);
    const std::string mode = modeName(commands);
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

std::string titleOf(const simulation::Actuator& actuator) {
  constexpr std::size_t mostTitleColumns = 30;
  return cutInMiddle(visible(actuator.name), mostTitleColumns);
}

void simplify(Panel& panel) {
  constexpr double seen = 1.0 / 1000.0;
  const double tolerance = seen * (panel.most - panel.least);
  panel.command = simplified(panel.command, tolerance);
  panel.measured = simplified(panel.measured, tolerance);
}

}  // namespace

bool isChosen(const std::string& pattern, const std::string& name) {
  return fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
}

std::vector<Panel> panelsOf(const RunResult& result, const Plan& plan, const RunLog& log,
                            const PictureOptions& options) {
  const std::int64_t approachMs = plan.schedule.approachMs;
  std::vector<Panel> panels;
  for (const AxisResult& axis : result.axes) {
    const simulation::Actuator& actuator = axis.actuator;
    if (!isChosen(options.joints, actuator.name)) {
      continue;
    }
    const RunLog::AxisLog& axisLog = log.of(axis.index);
    Panel& panel = panels.emplace_back();
    panel.title = titleOf(actuator);
    panel.command = recorded(result.history, axis.commandColumn);
    if (axis.measuredColumn) {
      panel.measured = recorded(result.history, *axis.measuredColumn);
    }
    panel.reached = commanded(axisLog.reached, actuator, approachMs);
    panel.cleared = commanded(axisLog.cleared, actuator, approachMs);
    panel.limited = commanded(axisLog.limited, actuator, approachMs);
    coverRange(panel);
    addLimits(actuator.minimum, actuator.maximum, panel);
    leaveOutClouds(axisLog, panel);
    addHandOvers(axisLog, plan, panel);
    simplify(panel);
  }
  return panels;
}

std::vector<Panel> velocityPanelsOf(const RunResult& result, const PictureOptions& options) {
  std::vector<Panel> panels;
  for (const AxisResult& axis : result.axes) {
    if (options.velocities && isChosen(options.joints, axis.actuator.name)) {
      Panel& panel = panels.emplace_back();
      panel.title = titleOf(axis.actuator) + ", a second";
      panel.command = velocities(recorded(result.history, axis.commandColumn));
      coverRange(panel);
      const auto limit = double{axis.actuator.maximumVelocity};
      addLimits(-limit, limit, panel);
      simplify(panel);
    }
  }
  return panels;
}

}  // namespace host
