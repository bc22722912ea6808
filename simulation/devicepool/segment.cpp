#include "simulation/devicepool/segment.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>

#include "simulation/devicepool/poollayout.h"
#include "simulation/framework/writelock.h"
#include "simulation/machine.h"

namespace simulation {
namespace {

constexpr mode_t ownersAlone = 0600;

/// Whether the name still refers to this segment and not to a later one. Uses neither the heap nor
/// a descriptor, since the destructor calls it.
bool stillNamed(const Descriptor& segment, const std::string& path) noexcept {
  struct stat mine {};
  struct stat named {};
  return fstat(segment.number(), &mine) == 0 && lstat(path.c_str(), &named) == 0 &&
         mine.st_ino == named.st_ino && mine.st_dev == named.st_dev;
}

/// Whether it is a device pool, or one whose owner ended before it was complete.
bool looksLikePool(const Descriptor& segment) {
  struct stat found {};
  if (fstat(segment.number(), &found) != 0 || found.st_size == 0) {
    return true;
  }
  if (found.st_size < static_cast<off_t>(sizeof(PoolRecord))) {
    return false;
  }
  const GuardedMapping head(segment.number(), sizeof(PoolRecord));
  const std::uint64_t magic = static_cast<const PoolRecord*>(head.address())->magic;
  return magic == 0 || magic == PoolRecord::expectedMagic;
}

[[noreturn]] void refuseForeign(const std::string& path, const struct stat& found) {
  throw Error(path + " belongs to user " + nameOfUser(found.st_uid) +
              (S_ISREG(found.st_mode) ? "" : " and is not a device pool") +
              "; choose another pool name");
}

/// Refuses a file of another user than this one and root.
void checkOwner(const Descriptor& segment, const std::string& path) {
  struct stat found {};
  if (fstat(segment.number(), &found) == 0 &&
      (!S_ISREG(found.st_mode) || (found.st_uid != geteuid() && found.st_uid != 0))) {
    refuseForeign(path, found);
  }
}

[[noreturn]] void refuseUnopened(const std::string& path, int error) {
  struct stat found {};
  if (lstat(path.c_str(), &found) == 0 && (!S_ISREG(found.st_mode) || found.st_uid != geteuid())) {
    refuseForeign(path, found);
  }
  throw Error("cannot open the device pool " + path + ": " + std::strerror(error));
}

/// The mode that the umask leaves to files. While it is determined the umask is stricter, never
/// wider.
mode_t permittedByUmask() {
  constexpr mode_t everybodyReads = 0644;
  const mode_t mask = umask(0077);
  umask(mask);
  return everybodyReads & ~mask;
}

}  // namespace

PoolPlace placeOfPool(const std::string& poolName) {
  constexpr std::size_t longestName = 200;
  PoolPlace place{geteuid(), {}};
  const std::size_t colon = poolName.find(':');
  const std::string name = colon == std::string::npos ? poolName : poolName.substr(colon + 1);
  const char* const end = poolName.data() + (colon == std::string::npos ? 0 : colon);
  const auto [stop, failure] = colon == std::string::npos
                                   ? std::from_chars_result{end, std::errc()}
                                   : std::from_chars(poolName.data(), end, place.user);
  const bool legal = stop == end && failure == std::errc() && !name.empty() &&
                     name.size() <= longestName &&
                     name.find_first_not_of(
                         "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwx"
                         "yz0123456789._-") == std::string::npos;
  if (!legal) {
    throw Error("'" + poolName +
                "' is not a pool name: use 1 to 200 letters, digits, '.', '_' and '-'; for another "
                "user's pool, UID:NAME");
  }
  place.path = "/dev/shm/torvex." + std::to_string(place.user) + "." + name;
  return place;
}

std::string poolPath(const std::string& poolName) {
  return placeOfPool(poolName).path;
}

std::string nameOfUser(uid_t user) {
  char text[4096];
  passwd entry{};
  passwd* found = nullptr;
  const bool isKnown = getpwuid_r(user, &entry, text, sizeof text, &found) == 0 && found != nullptr;
  return isKnown ? "'" + std::string(entry.pw_name) + "'" : std::to_string(user);
}

bool isOwned(const Descriptor& segment) noexcept {
  return writeLockOn(segment) == WriteLock::held;
}

Segment::Segment(const std::string& poolName, std::size_t sizeBytes, std::optional<mode_t> mode) {
  if (poolName.empty()) {
    mapping_ = Mapping(-1, sizeBytes, true);
    return;
  }
  const PoolPlace place = placeOfPool(poolName);
  if (place.user != geteuid()) {
    throw Error("the device pool '" + poolName + "' is one of user " + nameOfUser(place.user) +
                ", and only that user can create it; leave out the number");
  }
  path_ = place.path;
  // A process that starts at the same moment may win each attempt. It then owns the segment, which
  // the next attempt finds out.
  constexpr int turns = 16;
  for (int turn = 0; !create(); ++turn) {
    if (turn == turns) {
      throw Error("the device pool '" + poolName + "' is being created by another process");
    }
  }
  reserve(sizeBytes);
  fchmod(segment_.number(), ownersAlone | mode.value_or(permittedByUmask()));
}

Segment::~Segment() {
  if (segment_.isOpen() && stillNamed(segment_, path_)) {
    unlink(path_.c_str());
  }
}

bool Segment::create() {
  Descriptor created(
      ::open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, ownersAlone));
  if (created.isOpen()) {
    fchmod(created.number(), ownersAlone);  // whatever the umask took
    if (!lockForWriting(created) || !stillNamed(created, path_)) {
      return false;
    }
    segment_ = std::move(created);
    return true;
  }
  if (errno != EEXIST) {
    throw Error("cannot create the shared memory " + path_ + ": " + std::strerror(errno));
  }
  removeLeftover();
  return false;
}

void Segment::removeLeftover() {
  const Descriptor existing(
      ::open(path_.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!existing.isOpen()) {
    if (errno == ENOENT) {
      return;  // its owner has just ended
    }
    refuseUnopened(path_, errno);
  }
  checkOwner(existing, path_);
  // A process that may only read can take a read lock, which makes it no owner.
  if (!lockForWriting(existing) && isOwned(existing)) {
    throw Error("the device pool " + path_ +
                " belongs to a running process; end that one, or choose another pool name");
  }
  if (!stillNamed(existing, path_)) {
    return;
  }
  if (!looksLikePool(existing)) {
    throw Error(path_ + " is not a device pool; choose another pool name");
  }
  if (unlink(path_.c_str()) != 0 && errno != ENOENT) {
    refuseUnopened(path_, errno);
  }
  replacedLeftover_ = true;
}

void Segment::reserve(std::size_t sizeBytes) {
  try {
    // Memory is reserved now, since a page that is missing later would cause a signal and not an
    // error.
    int failure = EINTR;
    while (failure == EINTR) {
      failure = posix_fallocate(segment_.number(), 0, static_cast<off_t>(sizeBytes));
    }
    if (failure != 0) {
      throw Error("no room for a device pool of " + std::to_string(sizeBytes) +
                  " bytes in /dev/shm: " + std::strerror(failure));
    }
    mapping_ = Mapping(segment_.number(), sizeBytes, true);
  } catch (...) {
    unlink(path_.c_str());
    throw;
  }
}

}  // namespace simulation
