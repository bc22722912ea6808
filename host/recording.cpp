#include "host/recording.h"

#include <algorithm>

namespace host {
namespace {

constexpr std::int64_t mostRows = 4096;

}  // namespace

Recording::Recording(std::size_t rowLength, std::int64_t cycles)
    : rowLength_(rowLength), stride_(cycles / mostRows + 1) {
  // Written once, so that no cycle waits for the pages.
  values_.resize(static_cast<std::size_t>(std::min(cycles, mostRows)) * rowLength);
  values_.clear();
}

void Recording::add(const std::vector<double>& row) noexcept {
  const bool kept = offered_++ % stride_ == 0;
  if (kept && values_.size() + rowLength_ <= values_.capacity()) {
    values_.insert(values_.end(), row.begin(), row.end());
  }
}

void Recording::addLast(const std::vector<double>& row) {
  if (rows() == 0 || timeMs(rows() - 1) < row.front()) {
    values_.insert(values_.end(), row.begin(), row.end());
  }
}

}  // namespace host
