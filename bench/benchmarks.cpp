#include "bench/benchmarks.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <utility>

#include "bench/progress.h"

namespace bench {

void add(const std::string& name, std::function<void(benchmark::State&)> run, Timer timer) {
  auto* const added = benchmark::RegisterBenchmark(
      name.c_str(), [name, run = std::move(run)](benchmark::State& state) {
        showProgress(name);
        try {
          run(state);
        } catch (const std::exception& error) {
          state.SkipWithError(error.what());
        }
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

void countLatencies(benchmark::State& state, std::vector<double> samplesNs) {
  std::sort(samplesNs.begin(), samplesNs.end());
  state.counters[nsCounter] = quantile(samplesNs, 0.5);
  state.counters["p50_us"] = quantile(samplesNs, 0.5) / 1e3;
  state.counters["p99_us"] = quantile(samplesNs, 0.99) / 1e3;
}

}  // namespace bench
