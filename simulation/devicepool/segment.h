#pragma once

#include <boost/interprocess/mapped_region.hpp>
#include <boost/interprocess/shared_memory_object.hpp>
#include <cstddef>
#include <string>

namespace simulation {

/// The name that a pool's segment bears in the system. Throws `Error` for a
/// name with other characters than letters, digits, ".", "_" and "-".
std::string segmentName(const std::string& poolName);

/// Whether a living process owns this segment. Only asks: takes no lock that a
/// machine which starts meanwhile could meet.
bool isOwned(const boost::interprocess::shared_memory_object& object) noexcept;

/// A shared-memory segment of this process. The owner holds a lock on it that
/// the system releases with the process, however it ends; so a segment whose
/// lock is free was left behind.
class Segment {
 public:
  /// A new segment, all zero, its memory reserved. Replaces one left behind. An
  /// empty name makes one that this process alone has.
  /// Throws `Error` when a living process owns the name, when what bears it is
  /// no device pool, and when out of memory.
  Segment(const std::string& poolName, std::size_t sizeBytes);
  /// Removes the segment.
  ~Segment();

  Segment(const Segment&) = delete;
  Segment& operator=(const Segment&) = delete;

  [[nodiscard]] void* address() const { return region_.get_address(); }
  [[nodiscard]] bool replacedLeftover() const { return replacedLeftover_; }

 private:
  bool create();
  void removeLeftover();
  void reserve(std::size_t sizeBytes);

  std::string name_;
  /// With the slash that the system wants.
  std::string systemName_;
  boost::interprocess::shared_memory_object object_;
  boost::interprocess::mapped_region region_;
  bool replacedLeftover_ = false;
};

}  // namespace simulation
