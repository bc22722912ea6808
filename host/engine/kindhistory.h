#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/motion/event.h"

namespace host {

/// How many events of each kind came before an event. One thread at a time.
class KindHistory {
 public:
  using Counts = std::array<std::uint64_t, eventKinds>;

  /// Numbers are looked up from the beginning of a block on.
  static constexpr std::size_t blockLength = 1024;

  /// It knows the kinds of the latest `blocks` - 1 blocks at least, in a byte each.
  explicit KindHistory(std::size_t blocks = 1024);

  void add(EventKind kind);

  /// How many came in all; the number of the next one.
  [[nodiscard]] std::uint64_t count() const { return count_; }
  /// How many of each kind came before the event of this number, which has come, or is the next.
  /// Of those that came before what is known still, only how many kinds had by then.
  [[nodiscard]] Counts before(std::uint64_t number) const;

 private:
  /// The first event whose kind is known.
  [[nodiscard]] std::uint64_t oldest() const;

  std::vector<std::uint8_t> kinds_;
  /// Before the first event of each block.
  std::vector<Counts> beforeBlocks_;
  Counts counts_{};
  std::uint64_t count_ = 0;
};

}  // namespace host
