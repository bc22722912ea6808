#include <fcntl.h>
#include <unistd.h>

#include <csignal>

#include "host/cli/commandline.h"

namespace {

/// Otherwise the next file opened would get the descriptor of a closed standard
/// stream, and the report would be written into it; so would those of a program that this one
/// becomes or starts.
void openStandardStreams() {
  int descriptor = 0;
  while (descriptor >= 0 && descriptor <= STDERR_FILENO) {
    descriptor = open("/dev/null", O_RDWR);
  }
  close(descriptor);
}

}  // namespace

int main(int argc, char** argv) {
  openStandardStreams();
  // A write beyond the limit of a file's size, and one to a closed pipe, then fail instead of
  // ending the tool.
  std::signal(SIGXFSZ, SIG_IGN);
  std::signal(SIGPIPE, SIG_IGN);
  return host::runCommandLine(argc, argv);
}
