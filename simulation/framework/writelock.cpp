#include "simulation/framework/writelock.h"

#include <fcntl.h>
#include <unistd.h>

namespace simulation {
namespace {

struct flock wholeFile(short type) noexcept {
  struct flock whole {};
  whole.l_type = type;
  whole.l_whence = SEEK_SET;
  return whole;
}

}  // namespace

bool lockForWriting(const Descriptor& file) noexcept {
  struct flock wanted = wholeFile(F_WRLCK);
  return fcntl(file.number(), F_OFD_SETLK, &wanted) == 0;
}

WriteLock writeLockOn(const Descriptor& file) noexcept {
  struct flock found = wholeFile(F_RDLCK);
  if (fcntl(file.number(), F_OFD_GETLK, &found) != 0) {
    return WriteLock::unknown;
  }
  return found.l_type == F_UNLCK ? WriteLock::none : WriteLock::held;
}

}  // namespace simulation
