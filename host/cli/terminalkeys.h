#pragma once

#include <termios.h>

namespace host {

/// What a user presses on the terminal at standard input, without echo and as it is pressed, for
/// as long as this lives; nothing where there is no terminal, or another program has it.
class TerminalKeys {
 public:
  enum class Key { none, up, down, pageUp, pageDown, home, end, quit };

  TerminalKeys();
  /// The terminal is as it was.
  ~TerminalKeys();

  TerminalKeys(const TerminalKeys&) = delete;
  TerminalKeys& operator=(const TerminalKeys&) = delete;

  /// To be polled for input; -1 for none.
  [[nodiscard]] int descriptor() const { return isOn_ ? 0 : -1; }
  /// The key that was pressed, if any. Waits for nothing.
  [[nodiscard]] Key next() const;

 private:
  bool isOn_ = false;
  termios before_{};
};

}  // namespace host
