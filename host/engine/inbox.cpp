#include "host/engine/inbox.h"

#include <utility>

namespace host {

std::optional<std::uint32_t> Inbox::put(ScheduledBatch batch) {
  const std::lock_guard lock(mutex_);
  const std::size_t points = points_ + batch.commands->values.size();
  if (points > mostPoints || batches_.size() >= mostBatches) {
    return std::nullopt;
  }
  batches_.push_back({std::move(batch), count_});
  points_ = points;
  return count_++;
}

std::vector<Inbox::Arrival> Inbox::takeAll() {
  const std::lock_guard lock(mutex_);
  points_ = 0;
  return std::exchange(batches_, {});
}

std::uint32_t Inbox::takeNumbers(std::size_t count) {
  const std::lock_guard lock(mutex_);
  return std::exchange(count_, count_ + static_cast<std::uint32_t>(count));
}

}  // namespace host
