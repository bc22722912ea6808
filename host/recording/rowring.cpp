#include "host/recording/rowring.h"

namespace host {

RowRing::RowRing(std::size_t rowLength, std::size_t rows)
    : rowLength_(rowLength), rows_(rows), values_(rowLength * rows, 0.0), marks_(rows, 0) {}

void RowRing::add(const std::vector<double>& row, std::uint64_t mark) {
  std::copy_n(row.begin(), rowLength_,
              values_.begin() + static_cast<std::ptrdiff_t>(count_ % rows_ * rowLength_));
  marks_[count_ % rows_] = mark;
  ++count_;
}

void RowRing::read(std::uint64_t number, std::vector<double>& row) const {
  row.assign(at(number), at(number) + rowLength_);
}

}  // namespace host
