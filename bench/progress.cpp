#include "bench/progress.h"

#include <unistd.h>

#include <cstdio>

namespace bench {

namespace {

constexpr const char* eraseLine = "\r\x1b[K";

bool isOnTerminal() {
  static const bool onTerminal = isatty(STDERR_FILENO) == 1;
  return onTerminal;
}

}  // namespace

void showProgress(const std::string& benchmark) {
  static unsigned int passes = 0;
  ++passes;
  if (isOnTerminal()) {
    std::fprintf(stderr, "%spass %u: %s", eraseLine, passes, benchmark.c_str());
  }
}

void endProgress() {
  if (isOnTerminal()) {
    std::fputs(eraseLine, stderr);
  }
}

}  // namespace bench
