#include "host/server/requestnumbers.h"

#include <iterator>

namespace host {

void RequestNumbers::note(std::uint32_t first, std::size_t count) {
  if (count < 2) {
    return;
  }
  const std::lock_guard lock(mutex_);
  ends_[first] = first + static_cast<std::uint32_t>(count);
  if (ends_.size() > mostNoted) {
    ends_.erase(ends_.begin());
  }
}

std::uint32_t RequestNumbers::requestOf(std::uint32_t batch) const {
  const std::lock_guard lock(mutex_);
  const auto behind = ends_.upper_bound(batch);
  if (behind == ends_.begin()) {
    return batch;
  }
  const auto& [first, end] = *std::prev(behind);
  return batch < end ? first : batch;
}

}  // namespace host
