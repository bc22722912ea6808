#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

#include "host/motion/scheduledbatch.h"

namespace host {

/// Where batches wait until the command thread takes them. Bounded by the number of their
/// points and of themselves. Any thread; never the cycle.
class Inbox {
 public:
  static constexpr std::size_t mostPoints = 4'000'000;
  static constexpr std::size_t mostBatches = 400'000;

  /// The number that the batch bears from now on; none when there is no room. Numbers rise
  /// from 0 in the order of arrival.
  [[nodiscard]] std::optional<std::uint32_t> put(ScheduledBatch batch);
  /// All that has come, in the order of arrival: the numbers follow on those before.
  std::vector<ScheduledBatch> takeAll();

 private:
  std::mutex mutex_;
  std::vector<ScheduledBatch> batches_;
  std::size_t points_ = 0;
  std::uint32_t count_ = 0;
};

}  // namespace host
