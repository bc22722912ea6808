#include "host/cli/watchscreen.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <numeric>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "host/base/clocks.h"
#include "host/base/counted.h"
#include "host/base/visible.h"
#include "host/cli/terminalsize.h"

namespace host {
namespace {

constexpr std::string_view clearRestOfLine = "\x1b[K";
constexpr std::string_view clearRestOfScreen = "\x1b[J";
constexpr std::string_view home = "\x1b[H";
/// The other screen, without a cursor, where long lines do not wrap; and back.
constexpr std::string_view enter = "\x1b[?1049h\x1b[?25l\x1b[?7l";
constexpr std::string_view leave = "\x1b[?7h\x1b[?25h\x1b[?1049l";

/// A terminal that is gone needs nothing restored.
void send(std::string_view bytes) {
  [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, bytes.data(), bytes.size());
}

}  // namespace

WatchScreen::WatchScreen(std::string title, const LiveValues& values)
    : title_(std::move(title)), values_(values), order_(values.size()) {
  std::iota(order_.begin(), order_.end(), std::size_t{0});
  std::sort(order_.begin(), order_.end(), [&values](std::size_t one, std::size_t other) {
    return values.key(one) < values.key(other);
  });
  send(enter);
}

WatchScreen::~WatchScreen() {
  send(leave);
}

void WatchScreen::scroll(TerminalKeys::Key key) {
  const std::size_t last = order_.size() - std::min(rows_, order_.size());
  const auto back = [this](std::size_t rows) { return first_ - std::min(first_, rows); };
  switch (key) {
    case TerminalKeys::Key::up:
      first_ = back(1);
      break;
    case TerminalKeys::Key::down:
      first_ = first_ + 1;
      break;
    case TerminalKeys::Key::pageUp:
      first_ = back(rows_);
      break;
    case TerminalKeys::Key::pageDown:
      first_ = first_ + rows_;
      break;
    case TerminalKeys::Key::home:
      first_ = 0;
      break;
    case TerminalKeys::Key::end:
      first_ = last;
      break;
    default:
      break;
  }
  first_ = std::min(first_, last);
}

std::string WatchScreen::headline(std::size_t rows, std::int64_t timeMs) const {
  const std::string part =
      rows < order_.size() ? fmt::format("{} to {} of ", first_ + 1, first_ + rows) : "";
  const std::optional<std::int64_t> ageMs = values_.ageMs();
  const std::string age =
      ageMs ? fmt::format("  cycle {}, {:.3f} s ago", values_.cycle().number, inSeconds(*ageMs))
            : "";
  return fmt::format("{}{}  {:.1f} s  {}{}", part, counted(order_.size(), "value"),
                     inSeconds(timeMs), title_, age);
}

std::string WatchScreen::redrawn(std::int64_t timeMs) {
  constexpr std::size_t leastNameColumns = 8;
  constexpr std::size_t valueColumns = 16;
  const TerminalSize size = terminalSize(STDOUT_FILENO);
  rows_ = size.rows > 1 ? size.rows - 1 : 1;
  scroll(TerminalKeys::Key::none);
  const std::size_t rows = std::min(order_.size() - first_, rows_);
  std::vector<std::string> names;
  std::size_t nameColumns = leastNameColumns;
  for (std::size_t i = 0; i < rows; ++i) {
    names.push_back(visible(values_.key(order_[first_ + i])));
    nameColumns = std::max(nameColumns, columnsOf(names.back()));
  }
  nameColumns =
      std::clamp(size.columns, leastNameColumns + valueColumns, nameColumns + valueColumns) -
      valueColumns;
  const auto line = [&size](const std::string& text) {
    return fmt::format("{:.{}}{}", text, size.columns - 1, clearRestOfLine);
  };
  std::string bytes(home);
  bytes += line(headline(rows, timeMs));
  for (std::size_t i = 0; i < rows; ++i) {
    bytes += "\r\n" + line(fmt::format("{:<{}} {}", cutInMiddle(names[i], nameColumns), nameColumns,
                                       values_.shownValue(order_[first_ + i])));
  }
  return bytes.append(clearRestOfScreen);
}

}  // namespace host
