#include "simulation/devicepool/segment.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/interprocess/anonymous_shared_memory.hpp>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "simulation/devicepool/poollayout.h"
#include "simulation/machine.h"

namespace simulation {
namespace {

namespace bip = boost::interprocess;

int descriptorOf(const bip::shared_memory_object& object) {
  return object.get_mapping_handle().handle;
}

struct flock wholeSegment(short type) {
  struct flock whole {};
  whole.l_type = type;
  whole.l_whence = SEEK_SET;
  return whole;
}

/// The lock belongs to the open segment, not to the process: two machines of
/// one process keep each other out, too.
bool lock(const bip::shared_memory_object& object) {
  struct flock wanted = wholeSegment(F_WRLCK);
  return fcntl(descriptorOf(object), F_OFD_SETLK, &wanted) == 0;
}

/// Whether the name still designates this segment and not a later one. Without the heap:
/// the destructor asks.
bool stillNamed(const bip::shared_memory_object& object, const std::string& name) noexcept {
  const int descriptor = shm_open(name.c_str(), O_RDONLY, 0);
  if (descriptor < 0) {
    return false;
  }
  struct stat mine {};
  struct stat named {};
  const bool isSame = fstat(descriptorOf(object), &mine) == 0 && fstat(descriptor, &named) == 0 &&
                      mine.st_ino == named.st_ino && mine.st_dev == named.st_dev;
  close(descriptor);
  return isSame;
}

/// A pool, or one whose owner died before it was finished.
bool looksLikePool(const bip::shared_memory_object& object) {
  bip::offset_t size = 0;
  if (!object.get_size(size) || size == 0) {
    return true;
  }
  if (size < static_cast<bip::offset_t>(sizeof(PoolRecord))) {
    return false;
  }
  const bip::mapped_region head(object, bip::read_only, 0, sizeof(PoolRecord));
  const std::uint64_t magic = static_cast<const PoolRecord*>(head.get_address())->magic;
  return magic == 0 || magic == PoolRecord::expectedMagic;
}

}  // namespace

std::string segmentName(const std::string& poolName) {
  constexpr std::size_t longestName = 200;
  const bool legal = !poolName.empty() && poolName.size() <= longestName &&
                     poolName.find_first_not_of(
                         "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwx"
                         "yz0123456789._-") == std::string::npos;
  if (!legal) {
    throw Error("'" + poolName +
                "' is no pool name: use 1 to 200 letters, digits, '.', '_' and '-'");
  }
  return "torvex." + poolName;
}

bool isOwned(const bip::shared_memory_object& object) noexcept {
  struct flock found = wholeSegment(F_RDLCK);
  return fcntl(descriptorOf(object), F_OFD_GETLK, &found) == 0 && found.l_type != F_UNLCK;
}

Segment::Segment(const std::string& poolName, std::size_t sizeBytes)
    : name_(poolName.empty() ? "" : segmentName(poolName)), systemName_("/" + name_) {
  if (name_.empty()) {
    bip::mapped_region region(bip::anonymous_shared_memory(sizeBytes));
    region_.swap(region);
    return;
  }
  // Each turn can be lost to a process that starts at the same moment; it then
  // owns the segment, which the next turn finds out.
  constexpr int turns = 16;
  for (int turn = 0; !create(); ++turn) {
    if (turn == turns) {
      throw Error("the device pool '" + poolName + "' is being created by another process");
    }
  }
  reserve(sizeBytes);
}

Segment::~Segment() {
  if (!name_.empty() && stillNamed(object_, systemName_)) {
    shm_unlink(systemName_.c_str());
  }
}

bool Segment::create() {
  try {
    bip::shared_memory_object created(bip::create_only, name_.c_str(), bip::read_write);
    if (!lock(created) || !stillNamed(created, systemName_)) {
      return false;
    }
    object_.swap(created);
    return true;
  } catch (const bip::interprocess_exception& error) {
    if (error.get_error_code() != bip::already_exists_error) {
      throw Error("cannot create the shared memory /dev/shm/" + name_ + ": " + error.what());
    }
  }
  removeLeftover();
  return false;
}

void Segment::removeLeftover() {
  bip::shared_memory_object existing;
  try {
    bip::shared_memory_object opened(bip::open_only, name_.c_str(), bip::read_write);
    existing.swap(opened);
  } catch (const bip::interprocess_exception& error) {
    if (error.get_error_code() == bip::not_found_error) {
      return;  // its owner has just ended
    }
    throw Error("cannot open the shared memory /dev/shm/" + name_ + ": " + error.what());
  }
  if (!lock(existing)) {
    throw Error("the device pool /dev/shm/" + name_ +
                " belongs to a running process; choose another pool name");
  }
  if (!stillNamed(existing, systemName_)) {
    return;
  }
  if (!looksLikePool(existing)) {
    throw Error("/dev/shm/" + name_ + " is no device pool; choose another pool name");
  }
  shm_unlink(systemName_.c_str());
  replacedLeftover_ = true;
}

void Segment::reserve(std::size_t sizeBytes) {
  try {
    // Reserved now: a page that is missing later would be a signal, not an error.
    int failure = EINTR;
    while (failure == EINTR) {
      failure = posix_fallocate(descriptorOf(object_), 0, static_cast<off_t>(sizeBytes));
    }
    if (failure != 0) {
      throw Error("no room for a device pool of " + std::to_string(sizeBytes) +
                  " bytes in /dev/shm: " + std::strerror(failure));
    }
    bip::mapped_region region(object_, bip::read_write, 0, sizeBytes);
    region_.swap(region);
  } catch (...) {
    shm_unlink(systemName_.c_str());
    throw;
  }
}

}  // namespace simulation
