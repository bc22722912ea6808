#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace host {

/// The course of a run in memory: rows at even distances, as many as a picture
/// can show. A row begins with the time in milliseconds.
class Recording {
 public:
  /// For rows of this length, for a run of about so many cycles.
  Recording(std::size_t rowLength, std::int64_t cycles);

  /// One row a cycle, from the cycle thread: allocates nothing. Keeps every so
  /// many; none beyond the room that was planned.
  void add(const std::vector<double>& row) noexcept;
  /// The last row of the run, again: it is kept in any case.
  void addLast(const std::vector<double>& row);

  [[nodiscard]] std::size_t rows() const { return values_.size() / rowLength_; }
  [[nodiscard]] double timeMs(std::size_t row) const { return values_[row * rowLength_]; }
  /// A column behind the time.
  [[nodiscard]] double value(std::size_t row, std::size_t column) const {
    return values_[row * rowLength_ + 1 + column];
  }

 private:
  const std::size_t rowLength_;
  const std::int64_t stride_;
  std::int64_t offered_ = 0;
  std::vector<double> values_;
};

}  // namespace host
