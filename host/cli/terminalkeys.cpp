#include "host/cli/terminalkeys.h"

#include <poll.h>
#include <unistd.h>

#include <map>
#include <string>

namespace host {

TerminalKeys::TerminalKeys() {
  if (isatty(STDIN_FILENO) != 1 || tcgetpgrp(STDIN_FILENO) != getpgrp() ||
      tcgetattr(STDIN_FILENO, &before_) != 0) {
    return;
  }
  termios raw = before_;
  raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  raw.c_cc[VMIN] = 0;
  raw.c_cc[VTIME] = 0;
  isOn_ = tcsetattr(STDIN_FILENO, TCSANOW, &raw) == 0;
}

TerminalKeys::~TerminalKeys() {
  if (isOn_) {
    tcsetattr(STDIN_FILENO, TCSANOW, &before_);
  }
}

TerminalKeys::Key TerminalKeys::next() const {
  static const std::map<std::string, Key> keys = {
      {"\x1b[A", Key::up},  {"k", Key::up},           {"\x1b[B", Key::down},
      {"j", Key::down},     {"\x1b[5~", Key::pageUp}, {"\x1b[6~", Key::pageDown},
      {" ", Key::pageDown}, {"\x1b[H", Key::home},    {"g", Key::home},
      {"\x1b[F", Key::end}, {"G", Key::end},          {"q", Key::quit}};
  pollfd input{descriptor(), POLLIN, 0};
  if (!isOn_ || poll(&input, 1, 0) <= 0) {
    return Key::none;
  }
  // A key is sent in one piece.
  char bytes[8];
  const ssize_t count = read(STDIN_FILENO, bytes, sizeof bytes);
  const auto found =
      keys.find(count > 0 ? std::string(bytes, static_cast<std::size_t>(count)) : "");
  return found == keys.end() ? Key::none : found->second;
}

}  // namespace host
