#include "bench/stopwatch.h"

#include <algorithm>
#include <array>

namespace bench {

double Stopwatch::stop() const {
  const std::chrono::duration<double> elapsed = Clock::now() - began_;
  static const double cost = readingCost();
  return std::max(0.0, elapsed.count() - cost);
}

double Stopwatch::readingCost() {
  std::array<double, 1001> costs{};
  for (double& cost : costs) {
    const auto began = Clock::now();
    cost = std::chrono::duration<double>(Clock::now() - began).count();
  }
  std::nth_element(costs.begin(), costs.begin() + costs.size() / 2, costs.end());
  return costs[costs.size() / 2];
}

}  // namespace bench
