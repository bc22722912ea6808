#include "host/cli/status.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <string_view>

#include "host/base/usererror.h"
#include "host/base/visible.h"
#include "simulation/machine.h"

namespace host {

namespace {

/// Why standard output could not be written first; 0: it could.
int outputFailure = 0;

}  // namespace

void say(const std::string& text) {
  const std::string bytes = visibleLines(text);
  for (std::string_view rest = bytes; !rest.empty();) {
    const ssize_t written = write(STDOUT_FILENO, rest.data(), rest.size());
    if (written >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      return keepOutputFailure(errno);
    }
  }
}

void keepOutputFailure(int reason) {
  outputFailure = outputFailure == 0 ? reason : outputFailure;
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

namespace {

/// The heap may be what is missing.
int failed(int status, const char* prefix, const char* what,
           std::string (*shown)(std::string_view) = visible) {
  try {
    complain(prefix + shown(what) + "\n");
  } catch (const std::bad_alloc&) {
    std::fputs("torvex: error: out of memory\n", stderr);
  }
  return status;
}

int attempted(const std::function<int()>& command) {
  try {
    return command();
  } catch (const UserError& error) {
    return failed(badInputStatus, "", error.what(), visibleLines);
  } catch (const simulation::Error& error) {
    return failed(badInputStatus, "torvex: error: ", error.what());
  } catch (const std::bad_alloc&) {
    return failed(shortfallStatus, "torvex: error: ", "out of memory");
  } catch (const std::exception& error) {
    return failed(shortfallStatus, "torvex: error: ", error.what());
  }
}

}  // namespace

int statusOf(const std::function<int()>& command) {
  const int status = attempted(command);
  if (outputFailure == 0) {
    return status;
  }
  if (outputFailure != EPIPE) {
    complain(fmt::format("torvex: error: standard output cannot be written: {}\n",
                         std::strerror(outputFailure)));
  }
  return status == okStatus ? shortfallStatus : status;
}

}  // namespace host
