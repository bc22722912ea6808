// Takes the place of the system's call in this program.

#include "tests/support/namelessfiles.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>

bool refuseFilesWithoutName = false;

extern "C" [[gnu::visibility("default")]] int openat(int folder, const char* path, int flags, ...) {
  if (refuseFilesWithoutName && (flags & O_TMPFILE) == O_TMPFILE) {
    errno = EOPNOTSUPP;
    return -1;
  }
  va_list more;
  va_start(more, flags);
  const mode_t mode = va_arg(more, mode_t);
  va_end(more);
  return static_cast<int>(syscall(SYS_openat, folder, path, flags, mode));
}
