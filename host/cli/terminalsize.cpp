#include "host/cli/terminalsize.h"

#include <sys/ioctl.h>

namespace host {

TerminalSize terminalSize(int descriptor) {
  winsize size{};
  if (ioctl(descriptor, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) {
    return {};
  }
  return {size.ws_row, size.ws_col};
}

}  // namespace host
