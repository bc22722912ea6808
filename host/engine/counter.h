#pragma once

#include <atomic>
#include <cstdint>

namespace host {

/// Counts for one thread; others may read it meanwhile. May be called in the control cycle.
class Counter {
 public:
  Counter() = default;
  Counter(const Counter& other) : count_(other) {}
  Counter& operator=(const Counter& other) {
    count_.store(other, std::memory_order_relaxed);
    return *this;
  }
  ~Counter() = default;

  // NOLINTNEXTLINE(google-explicit-constructor): it is a number
  operator std::uint64_t() const noexcept { return count_.load(std::memory_order_relaxed); }
  Counter& operator=(std::uint64_t count) noexcept {
    count_.store(count, std::memory_order_relaxed);
    return *this;
  }
  Counter& operator++() noexcept { return *this = *this + 1; }

 private:
  std::atomic<std::uint64_t> count_{0};
};

}  // namespace host
