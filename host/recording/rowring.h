#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace host {

/// The latest rows, in memory that is there, and touched, from the beginning. One thread.
class RowRing {
 public:
  /// For so many rows, at least one.
  RowRing(std::size_t rowLength, std::size_t rows);

  /// With a number that is told of it.
  void add(const std::vector<double>& row, std::uint64_t mark);

  /// Rows are numbered as they come, from 0: the oldest one that is there, and the next to come.
  [[nodiscard]] std::uint64_t begin() const { return count_ - std::min(count_, rows_); }
  [[nodiscard]] std::uint64_t end() const { return count_; }

  /// Its first number.
  [[nodiscard]] double timeMs(std::uint64_t number) const { return *at(number); }
  [[nodiscard]] std::uint64_t mark(std::uint64_t number) const { return marks_[number % rows_]; }
  void read(std::uint64_t number, std::vector<double>& row) const;

 private:
  [[nodiscard]] const double* at(std::uint64_t number) const {
    return &values_[number % rows_ * rowLength_];
  }

  const std::size_t rowLength_;
  const std::uint64_t rows_;
  std::uint64_t count_ = 0;
  std::vector<double> values_;
  std::vector<std::uint64_t> marks_;
};

}  // namespace host
