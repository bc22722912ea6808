// Takes the place of the system's call in this program.

#include "tests/support/namelessfiles.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

bool refuseFilesWithoutName = false;

// The system declares openat without saying that a mode is its last argument; the name of the
// symbol alone is what the program's other calls bind to.
extern "C" [[gnu::visibility("default")]] int openatOfThisProgram(int folder, const char* path,
                                                                  int flags,
                                                                  mode_t mode) __asm__("openat");

extern "C" int openatOfThisProgram(int folder, const char* path, int flags, mode_t mode) {
  if (refuseFilesWithoutName && (flags & O_TMPFILE) == O_TMPFILE) {
    errno = EOPNOTSUPP;
    return -1;
  }
  return static_cast<int>(syscall(SYS_openat, folder, path, flags, mode));
}
