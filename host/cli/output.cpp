#include "host/cli/output.h"

#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "host/base/stopsignal.h"
#include "host/base/visible.h"
#include "host/cli/status.h"

namespace host {

int writeOut(const std::string& text) {
  return sendOut(visibleLines(text));
}

int sendOut(const std::string& bytes) {
  for (std::string_view rest = bytes; !rest.empty();) {
    if (const int signal = StopSignal::received()) {
      return signalStatus + signal;
    }
    const ssize_t written = write(STDOUT_FILENO, rest.data(), rest.size());
    if (written >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      keepOutputFailure(errno);
      return shortfallStatus;
    }
  }
  return okStatus;
}

}  // namespace host
