// The tool, with a memory that gives out: short_of_memory N once|on ARGUMENTS...
// Allocation N fails, with "on" all that follow, too; none does when N is 0. The exit
// status is 100 more when one has failed.

#include <unistd.h>

#include <cstdlib>
#include <string_view>

#include "host/cli/commandline.h"
#include "tests/support/failingheap.h"

int main(int argc, char** argv) {
  if (argc < 3) {
    return 99;
  }
  alarm(60);
  allFollow = std::string_view(argv[2]) == "on";
  placesToFailure = std::atol(argv[1]);
  const int status = host::runCommandLine(argc - 2, argv + 2);
  _exit(hasFailed ? 100 + status : status);
}
