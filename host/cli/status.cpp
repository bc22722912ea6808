#include "host/cli/status.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <new>
#include <string_view>

#include "host/base/usererror.h"
#include "host/base/visible.h"
#include "simulation/machine.h"

namespace host {

void say(const std::string& text) {
  std::fputs(visibleLines(text).c_str(), stdout);
  std::fflush(stdout);
}

bool outputFailed() {
  return std::ferror(stdout) != 0;
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

}  // namespace

int statusOf(const std::function<int()>& command) {
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

}  // namespace host
