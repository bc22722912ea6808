#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace host {

/// How many times a row begins with, in milliseconds: machine time, and the time since the
/// start of the motion.
constexpr std::size_t rowTimes = 2;

/// What a run did, in memory: rows at even distances, as many as a picture can show.
class SampleHistory {
 public:
  /// For rows of so many columns behind the times, of which there may be more, for a run of about
  /// so many cycles.
  SampleHistory(std::size_t columns, std::int64_t cycles);

  /// One row a cycle, from the cycle thread: allocates nothing. Keeps every so
  /// many; none beyond the room that was planned.
  void add(const std::vector<double>& row) noexcept;
  /// The last row of the run, again: it is kept in any case.
  void addLast(const std::vector<double>& row);

  [[nodiscard]] std::size_t rows() const { return values_.size() / rowLength_; }
  /// Machine time.
  [[nodiscard]] double timeMs(std::size_t row) const { return values_[row * rowLength_]; }
  /// Since the start of the motion.
  [[nodiscard]] double motionMs(std::size_t row) const { return values_[row * rowLength_ + 1]; }
  /// A column behind the times.
  [[nodiscard]] double value(std::size_t row, std::size_t column) const {
    return values_[row * rowLength_ + rowTimes + column];
  }

 private:
  const std::size_t rowLength_;
  const std::int64_t stride_;
  std::int64_t offered_ = 0;
  std::vector<double> values_;
};

}  // namespace host
