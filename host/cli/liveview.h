#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/engine/torvex.h"

namespace host {

/// Shows on a terminal how a run goes on: how far it is, and where each
/// actuator stands between its limits. Silent where standard error is no terminal.
class LiveView {
 public:
  LiveView();
  /// Takes away what is shown.
  ~LiveView();

  LiveView(const LiveView&) = delete;
  LiveView& operator=(const LiveView&) = delete;

  /// Says what is going on before the run.
  void announce(const std::string& what);

  /// Draws the state, ten times a second at most.
  void show(const std::vector<ShownAxis>& axes, std::int64_t timeMs, std::int64_t lastMs);

  /// Takes away what is shown.
  void clear();

 private:
  void draw(const std::string& lines, std::size_t count);

  const bool onTerminal_;
  std::size_t linesShown_ = 0;
  std::int64_t nextDrawNs_ = 0;
};

}  // namespace host
