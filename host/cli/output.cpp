#include "host/cli/output.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string_view>

#include "host/base/stopsignal.h"
#include "host/base/visible.h"
#include "host/cli/status.h"

namespace host {
namespace {

int gOutputFailure = 0;

int writeAll(std::string_view rest, bool endsAtSignal) {
  while (!rest.empty()) {
    if (const int signal = endsAtSignal ? StopSignal::received() : 0) {
      return signalStatus + signal;
    }
    const ssize_t written = write(STDOUT_FILENO, rest.data(), rest.size());
    if (written >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      gOutputFailure = gOutputFailure == 0 ? errno : gOutputFailure;
      return shortfallStatus;
    }
  }
  return okStatus;
}

}  // namespace

void say(const std::string& text) {
  static_cast<void>(writeAll(visibleLines(text), false));
}

int writeOut(const std::string& text) {
  return writeAll(visibleLines(text), true);
}

int sendOut(const std::string& bytes) {
  return writeAll(bytes, true);
}

int outputFailure() {
  return gOutputFailure;
}

void complain(const std::string& text) {
  std::fputs(visibleLines(text).c_str(), stderr);
  std::fflush(stderr);
}

void complainAll(const char* kind, const std::vector<Finding>& findings) {
  constexpr std::size_t most = 50;
  for (std::size_t i = 0; i < std::min(most, findings.size()); ++i) {
    complain(shown(findings[i], kind) + "\n");
  }
  if (findings.size() > most) {
    complain(fmt::format("torvex: {}: {} more like these\n", kind, findings.size() - most));
  }
}

}  // namespace host
