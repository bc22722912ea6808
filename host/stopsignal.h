#pragma once

#include <csignal>

namespace host {

/// Turns INT, TERM, HUP and QUIT into a wish to stop, for as long as it lives,
/// and ignores PIPE. One at a time.
class StopSignal {
 public:
  StopSignal();
  ~StopSignal();

  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;

  /// The signal that came first; 0 while none has. Any thread; may be called
  /// in the control cycle.
  [[nodiscard]] static int received() noexcept;

 private:
  static constexpr int stopping[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

  struct sigaction previous_[4]{};
  struct sigaction previousPipe_ {};
};

}  // namespace host
