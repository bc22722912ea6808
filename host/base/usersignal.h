#pragma once

#include <csignal>

namespace host {

/// Takes SIGUSR1, which would end the process, as a wish for as long as it lives. One at a time.
class UserSignal {
 public:
  UserSignal();
  ~UserSignal();

  UserSignal(const UserSignal&) = delete;
  UserSignal& operator=(const UserSignal&) = delete;

  /// Whether one came since the last call. Any thread.
  static bool take() noexcept;

 private:
  struct sigaction previous_ {};
};

}  // namespace host
