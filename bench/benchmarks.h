#pragma once

#if !defined(NDEBUG) || !defined(__OPTIMIZE__)
#error "Only an optimised build without assertions is measured."
#endif

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <vector>

namespace bench {

/// Each registers one group of benchmarks. They run in random order, again and
/// again, so every one of them sets up all it needs and leaves nothing behind.
void addCycleBenchmarks();
void addPushBenchmarks();
void addPoolBenchmarks();
void addNameBenchmarks();
void addBusyBenchmarks();
void addEngineBenchmarks();
void addDoorBenchmarks();
void addRecordingBenchmarks();
void addWireBenchmarks();

/// Who takes the time of an iteration.
enum class Timer {
  library,  ///< the benchmark library, of all that the loop does
  own,      ///< the benchmark, which reports it
  ownOnce,  ///< the same, in a single iteration
};

/// Registers one benchmark.
void add(const std::string& name, std::function<void(benchmark::State&)> run,
         Timer timer = Timer::library);

/// Every benchmark sets one of these counters, and the table shows it.
constexpr const char* nsCounter = "ns";
constexpr const char* bytesCounter = "bytes";
constexpr const char* percentCounter = "percent";
/// Of all repetitions the table shows the largest of this one, of others the median.
constexpr const char* maxCounter = "max";

/// Sets it: an iteration did its work on so many items.
inline void countItems(benchmark::State& state, double items) {
  state.counters[nsCounter] = benchmark::Counter(
      items * 1e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

/// What at least this share of all do not exceed.
double quantile(const std::vector<double>& sorted, double share);

/// Sets the counters of a benchmark that took so long each time.
void countLatencies(benchmark::State& state, std::vector<double> samplesNs);

}  // namespace bench
