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

  struct Arrival {
    ScheduledBatch batch;
    std::uint32_t number = 0;
  };

  /// Queues a batch and returns its number, or none when the inbox is full. Numbers rise
  /// in the order of arrival, from 0.
  [[nodiscard]] std::optional<std::uint32_t> put(ScheduledBatch batch);
  /// Removes and returns all batches, in the order of arrival.
  std::vector<Arrival> takeAll();
  /// The first of so many numbers that follow each other, which no batch in here gets.
  std::uint32_t takeNumbers(std::size_t count);

 private:
  std::mutex mutex_;
  std::vector<Arrival> batches_;
  std::size_t points_ = 0;
  std::uint32_t count_ = 0;
};

}  // namespace host
