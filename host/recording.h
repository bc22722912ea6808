#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace host {

/// The course of a run in memory: rows at even distances, as many as a picture
/// can show.
class Recording {
 public:
  /// For rows of this length, for a run of about so many cycles.
  Recording(std::size_t rowLength, std::int64_t cycles);

  /// One row a cycle, from the cycle thread: allocates nothing. Keeps every so
  /// many; none beyond the room that was planned.
  void add(const std::vector<double>& row) noexcept;

  [[nodiscard]] std::size_t rows() const { return values_.size() / rowLength_; }
  [[nodiscard]] double at(std::size_t row, std::size_t column) const {
    return values_[row * rowLength_ + column];
  }

 private:
  const std::size_t rowLength_;
  const std::int64_t stride_;
  std::int64_t offered_ = 0;
  std::vector<double> values_;
};

}  // namespace host
