#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "host/motion/point.h"

namespace host {

/// The points of a batch for one axis, in the order in which they are to wait. A batch that
/// repeats has them by rule: only those of its first round lie in memory.
///
/// Each round after the first begins at the last point's time, and leaves out points at time
/// 0: they are the last ones of the round before. Numbers go on from round to round.
class Rounds {
 public:
  /// `first` is the first round, in time order; its times count from `originMs`. Of more
  /// rounds than one, the last point lies behind the origin.
  // NOLINTNEXTLINE(google-explicit-constructor): the points of a batch are its one round.
  Rounds(std::vector<Point> first, std::uint32_t repeat = 1, std::int64_t originMs = 0);

  [[nodiscard]] const std::vector<Point>& first() const { return *first_; }
  [[nodiscard]] bool empty() const { return first_->empty(); }
  [[nodiscard]] bool isRepeated() const { return repeat_ > 1; }
  /// Of all rounds.
  [[nodiscard]] std::uint64_t size() const;
  /// Of each round after the first.
  [[nodiscard]] std::uint64_t sizeOfRound() const { return first_->size() - skipped_; }
  [[nodiscard]] std::int64_t periodMs() const { return periodMs_; }
  /// Whether no two points have the same time.
  [[nodiscard]] bool rises() const { return rises_; }

  // Of a batch that is not empty.

  [[nodiscard]] std::int64_t firstMs() const { return first_->front().timeMs; }
  [[nodiscard]] std::int64_t lastMs() const;
  [[nodiscard]] Point at(std::uint64_t position) const;

  /// The position of the first point at or behind a time; `size()` when there is none.
  [[nodiscard]] std::uint64_t findFirst(std::int64_t timeMs) const;

 private:
  std::shared_ptr<const std::vector<Point>> first_;
  std::uint32_t repeat_;
  std::int64_t originMs_;
  std::int64_t periodMs_ = 0;
  /// How many points of the first round the others leave out.
  std::size_t skipped_ = 0;
  bool rises_ = true;
};

}  // namespace host
