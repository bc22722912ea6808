#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace host {

/// One cycle, in machine time.
struct Cycle {
  std::int64_t timeMs = 0;
  /// Of the cycle before.
  std::int64_t previousMs = 0;
};

/// The latest cycles, so that who looks later can tell in which one a point was reached.
/// Written by the cycle, read by the command thread, both under the gate. Fixed size.
class CycleLog {
 public:
  static constexpr std::size_t most = 4096;

  void add(const Cycle& cycle) noexcept { cycles_[count_++ % cycles_.size()] = cycle; }

  /// How many were added; they are numbered from 0.
  [[nodiscard]] std::uint64_t count() const noexcept { return count_; }
  /// The earliest that is still known.
  [[nodiscard]] std::uint64_t oldest() const noexcept {
    return count_ > cycles_.size() ? count_ - cycles_.size() : 0;
  }
  [[nodiscard]] const Cycle& at(std::uint64_t number) const noexcept {
    return cycles_[number % cycles_.size()];
  }

 private:
  std::array<Cycle, most> cycles_{};
  std::uint64_t count_ = 0;
};

}  // namespace host
