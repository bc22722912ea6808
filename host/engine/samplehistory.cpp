#include "host/engine/samplehistory.h"

#include <algorithm>

namespace host {
namespace {

/// As many as a picture can show, within bounds for memory.
std::int64_t rowsFor(std::size_t rowLength) {
  constexpr std::size_t mostRows = 4096;
  constexpr std::size_t mostNumbers = std::size_t{1} << 23;
  return static_cast<std::int64_t>(std::min(mostRows, mostNumbers / rowLength));
}

}  // namespace

SampleHistory::SampleHistory(std::size_t columns, std::int64_t cycles)
    : rowLength_(rowTimes + columns), stride_(cycles / rowsFor(rowLength_) + 1) {
  // Written once, so that no cycle waits for the pages.
  values_.resize(static_cast<std::size_t>(std::min(cycles, rowsFor(rowLength_))) * rowLength_);
  values_.clear();
}

void SampleHistory::add(const std::vector<double>& row) noexcept {
  const bool kept = offered_++ % stride_ == 0;
  if (kept && values_.size() + rowLength_ <= values_.capacity()) {
    values_.insert(values_.end(), row.data(), row.data() + rowLength_);
  }
}

void SampleHistory::addLast(const std::vector<double>& row) {
  if (rows() == 0 || timeMs(rows() - 1) < row.front()) {
    values_.insert(values_.end(), row.data(), row.data() + rowLength_);
  }
}

}  // namespace host
