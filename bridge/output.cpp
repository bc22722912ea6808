#include "bridge/output.h"

#include <cstdio>

#include "host/base/visible.h"

namespace bridge {

void say(const std::string& text) {
  std::fputs((host::visible(text) + "\n").c_str(), stdout);
  std::fflush(stdout);
}

void complain(const std::string& text) {
  std::fputs((host::visible("torvex: " + text) + "\n").c_str(), stderr);
}

}  // namespace bridge
