#include "host/cli/watchscreen.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

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
    : title_(std::move(title)), values_(values) {
  send(enter);
}

WatchScreen::~WatchScreen() {
  send(leave);
}

std::string WatchScreen::redrawn(std::int64_t timeMs) const {
  constexpr std::size_t leastNameColumns = 8;
  constexpr std::size_t valueColumns = 16;
  const TerminalSize size = terminalSize(STDOUT_FILENO);
  const std::size_t rows = std::min(values_.size(), size.rows - 1);
  std::vector<std::string> names;
  std::size_t nameColumns = leastNameColumns;
  for (std::size_t i = 0; i < rows; ++i) {
    names.push_back(visible(values_.key(i)));
    nameColumns = std::max(nameColumns, columnsOf(names.back()));
  }
  nameColumns =
      std::clamp(size.columns, leastNameColumns + valueColumns, nameColumns + valueColumns) -
      valueColumns;
  const auto line = [&size](const std::string& text) {
    return fmt::format("{:.{}}{}", text, size.columns - 1, clearRestOfLine);
  };
  const std::string rest =
      rows < values_.size() ? fmt::format(" ({} more)", values_.size() - rows) : "";
  std::string bytes(home);
  const std::optional<std::int64_t> ageMs = values_.ageMs();
  const std::string age = ageMs ? fmt::format("  cycle {}, {:.3f} s ago", values_.cycle().number,
                                              static_cast<double>(*ageMs) / 1000.0)
                                : "";
  bytes += line(fmt::format("{}{}  {:.1f} s  {}{}", counted(rows, "value"), rest,
                            static_cast<double>(timeMs) / 1000.0, title_, age));
  for (std::size_t i = 0; i < rows; ++i) {
    bytes += "\r\n" + line(fmt::format("{:<{}} {}", cutInMiddle(names[i], nameColumns), nameColumns,
                                       values_.shownValue(i)));
  }
  return bytes.append(clearRestOfScreen);
}

}  // namespace host
