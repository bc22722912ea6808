#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/base/livevalues.h"
#include "host/cli/terminalkeys.h"

namespace host {

/// Shows values on the terminal at standard output, in the order of their keys, on a screen of its
/// own: what was there before comes back at the end.
class WatchScreen {
 public:
  /// The title stands above the values, which must outlive the object.
  WatchScreen(std::string title, const LiveValues& values);
  ~WatchScreen();

  WatchScreen(const WatchScreen&) = delete;
  WatchScreen& operator=(const WatchScreen&) = delete;

  /// What redraws all that fits, to be written out in one piece. The time is
  /// in milliseconds since watching began.
  [[nodiscard]] std::string redrawn(std::int64_t timeMs);
  void scroll(TerminalKeys::Key key);

 private:
  [[nodiscard]] std::string headline(std::size_t rows, std::int64_t timeMs) const;

  const std::string title_;
  const LiveValues& values_;
  /// Positions among the values.
  std::vector<std::size_t> order_;
  /// The first that is shown, and how many fit.
  std::size_t first_ = 0;
  std::size_t rows_ = 1;
};

}  // namespace host
