#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>

#include "simulation/devicepool/guardedmapping.h"
#include "simulation/framework/descriptor.h"

namespace simulation {

/// The path of the device pool with a name, and its user.
struct PoolPlace {
  uid_t user;
  std::string path;
};

/// "NAME" belongs to this user, "UID:NAME" to another. Throws `Error` for a name with other
/// characters than letters, digits, ".", "_" and "-".
PoolPlace placeOfPool(const std::string& poolName);

/// The name of the user, or the number where there is no name.
std::string nameOfUser(uid_t user);

/// Whether a running process owns this segment: the owner holds its write lock.
bool isOwned(const Descriptor& segment) noexcept;

/// A shared-memory segment of this process. The owner holds a lock on it, which the system releases
/// when the process ends, for whatever reason. So a segment without a lock was left behind.
class Segment {
 public:
  /// Creates a segment of zeros with reserved memory. Only this user may read it until it is
  /// locked; then `mode` says who may, and without it the umask. Replaces a segment that was left
  /// behind. With an empty name the segment is private to this process. Throws `Error` when a
  /// running process owns the segment, when the file with this name is no device pool of this user,
  /// when the name is that of another user, and when out of memory.
  Segment(const std::string& poolName, std::size_t sizeBytes, std::optional<mode_t> mode);
  /// Removes the segment. It needs no further descriptor for that.
  ~Segment();

  Segment(const Segment&) = delete;
  Segment& operator=(const Segment&) = delete;

  [[nodiscard]] void* address() const { return mapping_.address(); }
  [[nodiscard]] bool replacedLeftover() const { return replacedLeftover_; }

 private:
  bool create();
  void removeLeftover();
  void reserve(std::size_t sizeBytes);

  /// Empty for a private segment.
  std::string path_;
  Descriptor segment_;
  Mapping mapping_;
  bool replacedLeftover_ = false;
};

}  // namespace simulation
