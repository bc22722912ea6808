#include "host/cli/liveview.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "host/base/clocks.h"
#include "host/base/values.h"
#include "host/base/visible.h"
#include "host/cli/terminalsize.h"

namespace host {
namespace {

constexpr std::size_t barColumns = 41;

std::string progressBar(std::int64_t timeMs, std::int64_t lastMs) {
  const double share =
      std::clamp(static_cast<double>(timeMs) / static_cast<double>(lastMs), 0.0, 1.0);
  const auto filled = static_cast<std::size_t>(share * barColumns);
  return fmt::format("[{}{}] {:6.2f} of {:.2f} s\n", std::string(filled, '='),
                     std::string(barColumns - filled, ' '), inSeconds(timeMs), inSeconds(lastMs));
}

/// An actuator without limits is shown over one turn about zero, and what is no number in the
/// middle.
std::size_t columnOf(const simulation::Actuator& actuator, double value) {
  const double least = std::isfinite(actuator.minimum) ? actuator.minimum : -M_PI;
  const double most = std::isfinite(actuator.maximum) ? actuator.maximum : M_PI;
  // Halved, so that the difference of any two is finite.
  const double share = (value / 2 - least / 2) / (most / 2 - least / 2);
  const double within = std::isnan(share) ? 0.5 : std::clamp(share, 0.0, 1.0);
  return static_cast<std::size_t>(std::lround(within * static_cast<double>(barColumns - 1)));
}

std::string axisLine(const Axis& axis, std::size_t nameColumns) {
  std::string bar(barColumns, '.');
  if (const auto measured = axis.measuredValue()) {
    bar[columnOf(axis.actuator, *measured)] = 'o';
  }
  bar[columnOf(axis.actuator, axis.commanded())] = '#';
  const double command = axis.commanded();
  const std::string name = cutInMiddle(visible(axis.actuator.name), nameColumns);
  return fmt::format("{:<{}} [{}] {:>9}\n", name, nameColumns, bar,
                     fmt::format(std::abs(command) < 1e4 ? "{:.3f}" : "{:.2e}", command));
}

}  // namespace

LiveView::LiveView() : onTerminal_(isatty(STDERR_FILENO) == 1) {}

LiveView::~LiveView() {
  clear();
}

void LiveView::announce(const std::string& what) {
  if (onTerminal_) {
    draw(visible(what) + "\n", 1);
  }
}

void LiveView::show(const std::vector<ShownAxis>& axes, std::int64_t timeMs, std::int64_t lastMs) {
  constexpr std::int64_t drawEveryNs = 100 * nsPerMs;
  if (!onTerminal_ || bootNs() < nextDrawNs_) {
    return;
  }
  nextDrawNs_ = bootNs() + drawEveryNs;
  const TerminalSize size = terminalSize(STDERR_FILENO);
  constexpr std::size_t besideName = barColumns + 14;
  const std::size_t nameColumns =
      std::clamp<std::size_t>(size.columns, besideName + 8, besideName + 32) - besideName;
  const bool wide = size.columns >= besideName + 8;
  const std::size_t shown = wide && size.rows > 3 ? std::min(axes.size(), size.rows - 3) : 0;
  std::string lines = progressBar(timeMs, lastMs).substr(0, size.columns - 1);
  if (lines.back() != '\n') {
    lines += '\n';
  }
  for (std::size_t i = 0; i < shown; ++i) {
    lines += axisLine(axes[i].axis, nameColumns);
  }
  draw(lines, shown + 1);
}

void LiveView::clear() {
  if (linesShown_ > 0) {
    draw("", 0);
  }
}

void LiveView::draw(const std::string& lines, std::size_t count) {
  const std::string back = linesShown_ > 0 ? fmt::format("\x1b[{}A", linesShown_) : "";
  std::fputs((back + "\r\x1b[J" + visibleLines(lines)).c_str(), stderr);
  std::fflush(stderr);
  linesShown_ = count;
}

}  // namespace host
