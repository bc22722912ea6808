#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

#include "host/motion/scheduledbatch.h"

namespace host {

/// Queue of the batches that the command thread has not taken yet. Bounded in points and in
/// batches. Any thread; never the cycle.
class Inbox {
 public:
  static constexpr std::size_t mostPoints = 4'000'000;
  static constexpr std::size_t mostBatches = 400'000;

  /// Queues a batch and returns its number, or none when the inbox is full. Numbers rise
  /// from 0 in the order of arrival.
  [[nodiscard]] std::optional<std::uint32_t> put(ScheduledBatch batch);
  /// Removes and returns all batches, in the order of arrival: their numbers continue those
  /// of the call before.
  std::vector<ScheduledBatch> takeAll();

 private:
  std::mutex mutex_;
  std::vector<ScheduledBatch> batches_;
  std::size_t points_ = 0;
  std::uint32_t count_ = 0;
};

}  // namespace host
