#include "host/cli/status.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <string_view>

#include "host/base/usererror.h"
#include "host/base/visible.h"
#include "host/cli/output.h"
#include "simulation/machine.h"

namespace host {
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
  const int failure = outputFailure();
  if (failure == 0) {
    return status;
  }
  if (failure != EPIPE) {
    complain(fmt::format("torvex: error: standard output cannot be written: {}\n",
                         std::strerror(failure)));
  }
  return status == okStatus ? shortfallStatus : status;
}

}  // namespace host
