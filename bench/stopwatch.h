#pragma once

#include <chrono>

namespace bench {

/// Measures parts of an iteration.
class Stopwatch {
 public:
  void start() { began_ = Clock::now(); }
  /// Seconds since the start, less what reading the clock costs; not negative.
  [[nodiscard]] double stop() const;

 private:
  using Clock = std::chrono::steady_clock;

  static double readingCost();

  Clock::time_point began_;
};

}  // namespace bench
