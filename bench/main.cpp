// Takes every comparison in one run: all benchmarks ten times, in random order.
// The options are those of the benchmark library (--help).

#include <malloc.h>

#include <future>
#include <string>
#include <thread>
#include <vector>

#include "bench/benchmarks.h"
#include "bench/report.h"
#include "bench/surroundings.h"

namespace {

/// What is given later counts.
std::vector<std::string> withDefaults(int argc, char** argv) {
  std::vector<std::string> arguments{argv[0], "--benchmark_repetitions=10",
                                     "--benchmark_enable_random_interleaving=true",
                                     "--benchmark_min_time=0.01"};
  arguments.insert(arguments.end(), argv + 1, argv + argc);
  return arguments;
}

/// The benchmark library keeps pointers into the arguments.
bool readArguments(std::vector<std::string>& arguments) {
  std::vector<char*> pointers;
  for (std::string& argument : arguments) {
    pointers.push_back(argument.data());
  }
  int count = static_cast<int>(pointers.size());
  pointers.push_back(nullptr);
  benchmark::Initialize(&count, pointers.data());
  return !benchmark::ReportUnrecognizedArguments(count, pointers.data());
}

/// Left to itself the heap moves this bound as blocks come and go, and a pool
/// would lie differently each time that it grows.
void fixHeapLayout() {
  mallopt(M_MMAP_THRESHOLD, 128 * 1024);
}

}  // namespace

int main(int argc, char** argv) {
  fixHeapLayout();
  std::vector<std::string> arguments = withDefaults(argc, argv);
  if (!readArguments(arguments)) {
    return 2;
  }
  bench::noteSurroundings();
  bench::addCycleBenchmarks();
  bench::addPushBenchmarks();
  bench::addPoolBenchmarks();
  bench::addNameBenchmarks();
  bench::addBusyBenchmarks();
  bench::addEngineBenchmarks();
  bench::addDoorBenchmarks();
  bench::addRecordingBenchmarks();
  bench::addWireBenchmarks();

  // With one thread alone, locks would cost less than in any program that needs them.
  std::promise<void> done;
  std::thread other([finished = done.get_future()] { finished.wait(); });
  bench::Report report;
  const std::size_t measured = benchmark::RunSpecifiedBenchmarks(&report);
  done.set_value();
  other.join();
  return measured == 0 || report.hasFailed() ? 1 : 0;
}
