#pragma once

#include <cstdint>
#include <string>

#include "host/base/livevalues.h"

namespace host {

/// Shows values on the terminal at standard output, on a screen of its own:
/// what was there before comes back at the end.
class WatchScreen {
 public:
  /// The title stands above the values, which must outlive the object.
  WatchScreen(std::string title, const LiveValues& values);
  ~WatchScreen();

  WatchScreen(const WatchScreen&) = delete;
  WatchScreen& operator=(const WatchScreen&) = delete;

  /// What redraws all that fits, to be written out in one piece. The time is
  /// in milliseconds since watching began.
  [[nodiscard]] std::string redrawn(std::int64_t timeMs) const;

 private:
  const std::string title_;
  const LiveValues& values_;
};

}  // namespace host
