#pragma once

#include <atomic>
#include <boost/lockfree/spsc_queue.hpp>
#include <cstddef>
#include <vector>

#include "host/engine/counter.h"

namespace host {

/// Rows of numbers on their way from the cycle to the one thread that writes them down. Bounded;
/// all its memory is there, and touched, from the beginning.
class RowQueue {
 public:
  explicit RowQueue(std::size_t rowLength);

  /// The first numbers of a row, which has at least as many. From the cycle thread. Wait-free: a
  /// row for which there is no room is dropped, and counted.
  void push(const std::vector<double>& row) noexcept;
  /// The same, but waits for room until the queue is closed; not for a real control cycle.
  void pushWaiting(const std::vector<double>& row);
  /// How many rows were dropped. Any thread.
  [[nodiscard]] std::uint64_t dropped() const noexcept { return dropped_; }

  /// The next row, for the thread that writes; false when there is none.
  bool pop(std::vector<double>& row);
  /// No row is taken any more. Any thread.
  void close() noexcept { isClosed_ = true; }

  [[nodiscard]] std::size_t rowLength() const { return rowLength_; }

 private:
  bool tryPush(const std::vector<double>& row) noexcept;

  const std::size_t rowLength_;
  boost::lockfree::spsc_queue<double> queue_;
  std::atomic<bool> isClosed_{false};
  Counter dropped_;
};

}  // namespace host
