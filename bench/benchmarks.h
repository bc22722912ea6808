#pragma once

#if !defined(NDEBUG) || !defined(__OPTIMIZE__)
#error "Only an optimised build without assertions is measured."
#endif

#include <benchmark/benchmark.h>

#include <functional>
#include <string>

namespace bench {

/// Each registers one group of benchmarks. They run in random order, again and
/// again, so every one of them sets up all it needs and leaves nothing behind.
void addCycleBenchmarks();
void addPushBenchmarks();
void addPoolBenchmarks();
void addNameBenchmarks();
void addBusyBenchmarks();

/// Registers one benchmark.
benchmark::internal::Benchmark* add(const std::string& name,
                                    std::function<void(benchmark::State&)> run);

/// The counter that every benchmark sets and the table shows.
constexpr const char* nsCounter = "ns";
/// Of all repetitions the table shows the largest of this one, of others the median.
constexpr const char* maxCounter = "max";

/// Sets it: an iteration did its work on so many items.
inline void countItems(benchmark::State& state, double items) {
  state.counters[nsCounter] = benchmark::Counter(
      items * 1e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

}  // namespace bench
