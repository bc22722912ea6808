#include "bench/benchmarks.h"

#include <cmath>
#include <utility>

#include "bench/progress.h"

namespace bench {

namespace {

class Registered : public benchmark::internal::Benchmark {
 public:
  Registered(const std::string& name, std::function<void(benchmark::State&)> run)
      : Benchmark(name.c_str()), name_(name), run_(std::move(run)) {}

  void Run(benchmark::State& state) override {
    showProgress(name_);
    run_(state);
  }

 private:
  std::string name_;
  std::function<void(benchmark::State&)> run_;
};

}  // namespace

// The benchmark library owns what it registers; the analyzer cannot see that, nor be
// told of it inside the library's own template.
benchmark::internal::Benchmark* add(const std::string& name,
                                    std::function<void(benchmark::State&)> run) {
  // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks)
  return benchmark::internal::RegisterBenchmarkInternal(new Registered(name, std::move(run)));
}

double quantile(const std::vector<double>& sorted, double share) {
  const double rank = std::ceil(share * static_cast<double>(sorted.size()));
  return sorted[static_cast<std::size_t>(rank) - 1];
}

}  // namespace bench
