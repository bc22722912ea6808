#include "host/liveview.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace host {
namespace {

constexpr std::size_t barColumns = 41;

struct TerminalSize {
  std::size_t rows = 24;
  std::size_t columns = 80;
};

TerminalSize terminalSize() {
  winsize size{};
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) {
    return {};
  }
  return {size.ws_row, size.ws_col};
}

std::string progressBar(std::int64_t timeMs, std::int64_t lastMs) {
  const double share =
      std::clamp(static_cast<double>(timeMs) / static_cast<double>(lastMs), 0.0, 1.0);
  const auto filled = static_cast<std::size_t>(share * barColumns);
  return fmt::format("[{}{}] {:6.2f} of {:.2f} s\n", std::string(filled, '='),
                     std::string(barColumns - filled, ' '), static_cast<double>(timeMs) / 1000.0,
                     static_cast<double>(lastMs) / 1000.0);
}

/// A joint without limits is shown over one turn about zero.
std::size_t columnOf(const MovedJoint& joint, float value) {
  const double least = std::isfinite(joint.minimum) ? joint.minimum : -M_PI;
  const double most = std::isfinite(joint.maximum) ? joint.maximum : M_PI;
  const double share = most > least ? (static_cast<double>(value) - least) / (most - least) : 0.5;
  return static_cast<std::size_t>(
      std::lround(std::clamp(share, 0.0, 1.0) * static_cast<double>(barColumns - 1)));
}

std::string jointLine(const MovedJoint& joint, std::size_t nameColumns) {
  std::string bar(barColumns, '.');
  bar[columnOf(joint, joint.measured->loadFloat())] = 'o';
  bar[columnOf(joint, joint.command->loadFloat())] = '#';
  return fmt::format("{:<{}.{}} [{}] {:8.3f}\n", joint.name, nameColumns, nameColumns, bar,
                     joint.command->loadFloat());
}

std::int64_t nowNs() {
  return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
}

}  // namespace

LiveView::LiveView() : onTerminal_(isatty(STDERR_FILENO) == 1) {}

LiveView::~LiveView() {
  clear();
}

void LiveView::announce(const std::string& what) {
  if (onTerminal_) {
    draw(what + "\n", 1);
  }
}

void LiveView::show(const std::vector<MovedJoint>& joints, std::int64_t timeMs,
                    std::int64_t lastMs) {
  constexpr std::int64_t drawEveryNs = 100'000'000;
  if (!onTerminal_ || nowNs() < nextDrawNs_) {
    return;
  }
  nextDrawNs_ = nowNs() + drawEveryNs;
  const TerminalSize size = terminalSize();
  constexpr std::size_t besideName = barColumns + 13;
  const std::size_t nameColumns =
      std::clamp<std::size_t>(size.columns, besideName + 8, besideName + 32) - besideName;
  const bool wide = size.columns >= besideName + 8;
  const std::size_t shown = wide && size.rows > 3 ? std::min(joints.size(), size.rows - 3) : 0;
  std::string lines = progressBar(timeMs, lastMs).substr(0, size.columns - 1);
  if (lines.back() != '\n') {
    lines += '\n';
  }
  for (std::size_t i = 0; i < shown; ++i) {
    lines += jointLine(joints[i], nameColumns);
  }
  draw(lines, shown + 1);
}

void LiveView::clear() {
  if (onTerminal_) {
    draw("", 0);
  }
}

void LiveView::draw(const std::string& lines, std::size_t count) {
  const std::string back = linesShown_ > 0 ? fmt::format("\x1b[{}A", linesShown_) : "";
  std::fputs((back + "\r\x1b[J" + lines).c_str(), stderr);
  std::fflush(stderr);
  linesShown_ = count;
}

}  // namespace host
