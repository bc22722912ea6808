#pragma once

#include <cstddef>
#include <utility>

namespace simulation {

/// Mapped memory, unmapped with the object.
class Mapping {
 public:
  Mapping() = default;
  /// Throws `std::system_error`. With a descriptor of -1 it maps memory of this process.
  Mapping(int descriptor, std::size_t size, bool forWriting);
  Mapping(Mapping&& other) noexcept
      : address_(std::exchange(other.address_, nullptr)), size_(other.size_) {}
  Mapping& operator=(Mapping&& other) noexcept {
    std::swap(address_, other.address_);
    std::swap(size_, other.size_);
    return *this;
  }
  ~Mapping();

  [[nodiscard]] void* address() const noexcept { return address_; }
  [[nodiscard]] std::size_t size() const noexcept { return size_; }

 private:
  void* address_ = nullptr;
  std::size_t size_ = 0;
};

struct MappingGuard;

/// Maps a file for reading that others may truncate. What is missing then reads as zero instead of
/// ending the process, and `isCut` is true from then on.
///
/// For this it installs a handler for SIGBUS in the process, which passes other faults on.
class GuardedMapping {
 public:
  /// Throws `std::system_error`.
  GuardedMapping(int descriptor, std::size_t size);
  ~GuardedMapping();

  GuardedMapping(const GuardedMapping&) = delete;
  GuardedMapping& operator=(const GuardedMapping&) = delete;

  [[nodiscard]] const void* address() const noexcept { return mapping_.address(); }
  [[nodiscard]] std::size_t size() const noexcept { return mapping_.size(); }
  [[nodiscard]] bool isCut() const noexcept;

 private:
  Mapping mapping_;
  MappingGuard& guard_;
};

}  // namespace simulation
