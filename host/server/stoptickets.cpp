#include "host/server/stoptickets.h"

namespace host {

std::uint64_t StopTickets::ticket() const {
  const std::lock_guard lock(mutex_);
  return stops_;
}

void StopTickets::note(const std::vector<int>& axes, const std::function<void()>& ask) {
  const std::lock_guard lock(mutex_);
  ++stops_;
  for (const int axis : axes) {
    stopOf_[axis] = stops_;
  }
  ask();
}

std::optional<std::size_t> StopTickets::unlessStopped(
    std::uint64_t ticket, const std::vector<const CommandBatch*>& batches,
    const std::function<void()>& ask) {
  const std::lock_guard lock(mutex_);
  for (std::size_t i = 0; i < batches.size(); ++i) {
    for (const int axis : batches[i]->actuators) {
      const auto stopped = stopOf_.find(axis);
      if (stopped != stopOf_.end() && stopped->second > ticket) {
        return i;
      }
    }
  }
  ask();
  return std::nullopt;
}

}  // namespace host
