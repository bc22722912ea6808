#include "host/engine/rowqueue.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace host {
namespace {

/// Four seconds at a thousand cycles a second, within bounds for memory.
std::size_t queueLength(std::size_t rowLength) {
  constexpr std::size_t rows = 4096;
  constexpr std::size_t mostNumbers = std::size_t{1} << 23;
  constexpr std::size_t leastRows = 16;
  return std::max(std::min(rows * rowLength, mostNumbers), leastRows * rowLength);
}

}  // namespace

RowQueue::RowQueue(std::size_t rowLength) : rowLength_(rowLength), queue_(queueLength(rowLength)) {
  // Touches every page, so that no cycle waits for one.
  const std::vector<double> zeros(rowLength_);
  while (tryPush(zeros)) {
  }
  queue_.reset();
}

bool RowQueue::tryPush(const std::vector<double>& row) noexcept {
  if (queue_.write_available() < rowLength_) {
    return false;
  }
  queue_.push(row.data(), rowLength_);
  return true;
}

void RowQueue::push(const std::vector<double>& row) noexcept {
  if (!isClosed_ && !tryPush(row)) {
    ++dropped_;
  }
}

void RowQueue::pushWaiting(const std::vector<double>& row) {
  using namespace std::chrono_literals;
  while (!isClosed_ && !tryPush(row)) {
    std::this_thread::sleep_for(100us);
  }
}

bool RowQueue::pop(std::vector<double>& row) {
  // Rows are pushed whole, so a first number means that the rest is there.
  if (queue_.read_available() < rowLength_) {
    return false;
  }
  row.resize(rowLength_);
  queue_.pop(row.data(), rowLength_);
  return true;
}

}  // namespace host
