#pragma once

#include <array>
#include <csignal>

namespace host {

/// Turns INT, TERM, HUP (unless it was ignored) and QUIT into a wish to stop, for
/// as long as it lives, and lets writes to a closed pipe fail. A repeated wish gives the signals
/// their default action back: the next one ends the process, whatever it waits for. One at a time.
class StopSignal {
 public:
  StopSignal();
  ~StopSignal();

  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;

  /// The signal that came first; 0 while none has. Any thread; may be called
  /// in the control cycle.
  [[nodiscard]] static int received() noexcept;
  /// Whether another one came; what comes within 20 ms is the same wish, sent to a process and
  /// to its group. As `received`.
  [[nodiscard]] static bool isRepeated() noexcept;
  /// From now on nothing moves any more: the signal that repeats ends the process itself.
  static void letRepeatedEnd() noexcept;

 private:
  static constexpr std::array<int, 4> stopping = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

  std::array<struct sigaction, stopping.size()> previous_{};
  struct sigaction previousPipe_ {};
};

}  // namespace host
