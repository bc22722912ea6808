#include "bridge/output.h"

#include <unistd.h>

#include "host/base/visible.h"

namespace bridge {
namespace {

// Their threads may outlive main().

Outlet& standardOutput() {
  static auto* const outlet = new Outlet(STDOUT_FILENO);
  return *outlet;
}

Outlet& standardError() {
  static auto* const outlet = new Outlet(STDERR_FILENO);
  return *outlet;
}

}  // namespace

void say(const std::string& text) {
  standardOutput().add(host::visible(text));
}

void complain(const std::string& text, About about) {
  standardError().add(host::visible("torvex: " + text), about);
}

bool finishOutput() {
  const bool isWritten = standardOutput().finish();
  return standardError().finish() && isWritten;
}

}  // namespace bridge
