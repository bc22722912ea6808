#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>

#include "simulation/devicepool/guardedmapping.h"
#include "simulation/framework/descriptor.h"

namespace simulation {

/// Where the pool of a name lies, and whose it is.
struct PoolPlace {
  uid_t user;
  std::string path;
};

/// "NAME" is this user's, "UID:NAME" another's. Throws `Error` for a name with other characters
/// than letters, digits, ".", "_" and "-".
PoolPlace placeOfPool(const std::string& poolName);

/// In words for a user: the name, or the number where there is none.
std::string nameOfUser(uid_t user);

/// Whether a living process owns this segment: it has a lock for writing, which nobody gets who
/// may only read. Only asks: takes no lock that a machine which starts meanwhile could meet.
bool isOwned(const Descriptor& segment) noexcept;

/// A shared-memory segment of this process. The owner holds a lock on it that the system
/// releases with the process, however it ends; so a segment without one was left behind.
class Segment {
 public:
  /// A new segment, all zero, its memory reserved; it is this user's alone until it is locked,
  /// and may then be read by whom `mode` says, without it by whom the umask leaves. Replaces one
  /// left behind. An empty name makes one that this process alone has.
  /// Throws `Error` when a living process owns the name, when what bears it is no device pool of
  /// this user, when the name is another user's, and when out of memory.
  Segment(const std::string& poolName, std::size_t sizeBytes, std::optional<mode_t> mode);
  /// Removes the segment, for which it needs no further descriptor.
  ~Segment();

  Segment(const Segment&) = delete;
  Segment& operator=(const Segment&) = delete;

  [[nodiscard]] void* address() const { return mapping_.address(); }
  [[nodiscard]] bool replacedLeftover() const { return replacedLeftover_; }

 private:
  bool create();
  void removeLeftover();
  void reserve(std::size_t sizeBytes);

  /// Empty: nobody else finds it.
  std::string path_;
  Descriptor segment_;
  Mapping mapping_;
  bool replacedLeftover_ = false;
};

}  // namespace simulation
