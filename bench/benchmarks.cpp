#include "bench/benchmarks.h"

#include <cmath>
#include <utility>

#include "bench/progress.h"

namespace bench {

void add(const std::string& name, std::function<void(benchmark::State&)> run, Timer timer) {
  auto* const added = benchmark::RegisterBenchmark(
      name.c_str(), [name, run = std::move(run)](benchmark::State& state) {
        showProgress(name);
        run(state);
      });
  if (timer != Timer::library) {
    added->UseManualTime();
  }
  if (timer == Timer::ownOnce) {
    added->Iterations(1);
  }
}

double quantile(const std::vector<double>& sorted, double share) {
  const double rank = std::ceil(share * static_cast<double>(sorted.size()));
  return sorted[static_cast<std::size_t>(rank) - 1];
}

}  // namespace bench
