// What a recording costs the cycle, beside the thread that writes it, and how large it becomes.

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "bench/benchmarks.h"
#include "bench/enginerig.h"
#include "bench/heapcalls.h"
#include "bench/stopwatch.h"
#include "host/base/clocks.h"
#include "host/base/values.h"
#include "host/engine/samplehistory.h"
#include "host/recording/flightrecorder.h"
#include "host/recording/recorder.h"

namespace bench {

namespace {

enum class Kind { none, file, ring };

/// A machine whose axes reach a point every 20 ms, as many in each cycle, at 1 kHz on the wall
/// clock.
class RecordedRig {
 public:
  RecordedRig(std::size_t axes, Kind kind) : rig_(axes) {
    for (const host::Axis& axis : rig_.engine.axes()) {
      head_.axes.push_back(
          {axis.actuator, host::valueKey(axis.actuator), head_.columns.size(), {}});
      head_.columns.push_back(axis.actuator.name + "/command");
      head_.columns.push_back(axis.actuator.name + "/measured");
      columns_.push_back(axis.command);
      columns_.push_back(axis.measured);
    }
    head_.cycleMs = 1;
    row_.resize(host::rowTimes + columns_.size());
    record(kind);
    feed();
  }
  ~RecordedRig() { std::filesystem::remove_all(folder_); }

  RecordedRig(const RecordedRig&) = delete;
  RecordedRig& operator=(const RecordedRig&) = delete;

  /// The next cycle, in its millisecond: what it takes, in ns.
  double cycle() {
    host::sleepUntil(nextNs_ += host::nsPerMs);
    rig_.wake();
    const std::uint64_t calls = heapCalls();
    watch_.start();
    rig_.engine.goOn();
    rig_.engine.machine().step(0.001);
    readBack();
    if (recorder_) {
      recorder_->rows().push(row_);
    }
    const double ns = 1e9 * watch_.stop();
    heapCalls_ += heapCalls() - calls;
    rig_.engine.pass();
    return ns;
  }

  /// Has the ring written, if there is one.
  void wish() {
    if (ring_ != nullptr) {
      ring_->ask("request");
    }
  }
  /// The bytes of what was written.
  double finish() {
    if (!recorder_) {
      return 0.0;
    }
    recorder_->finish();
    double bytes = 0.0;
    for (const auto& file : std::filesystem::directory_iterator(folder_)) {
      bytes += static_cast<double>(file.file_size());
    }
    return bytes;
  }
  [[nodiscard]] std::uint64_t heapCallsOfCycles() const { return heapCalls_; }
  [[nodiscard]] double droppedRows() {
    return recorder_ ? static_cast<double>(recorder_->rows().dropped()) : 0.0;
  }

 private:
  static std::string newFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "torvex-bench-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
      throw std::runtime_error("no folder for a recording");
    }
    return pattern;
  }

  void record(Kind kind) {
    const auto failed = [](const std::string&) {};
    if (kind == Kind::file) {
      recorder_.emplace(folder_ + "/r.mcap", rig_.machine(), head_, failed);
    } else if (kind == Kind::ring) {
      auto ring = std::make_unique<host::FlightRecorder>(host::RingOptions{ringSeconds, folder_, 1},
                                                         rig_.machine(), head_);
      ring_ = ring.get();
      recorder_.emplace(head_, std::move(ring), failed);
    }
    if (recorder_) {
      rig_.engine.addListener(*recorder_);
    }
  }

  void feed() {
    const std::size_t axes = rig_.engine.axes().size();
    for (std::size_t phase = 0; phase < pointMs; ++phase) {
      std::vector<int> some;
      for (std::size_t axis = phase; axis < axes; axis += pointMs) {
        some.push_back(static_cast<int>(axis));
      }
      rig_.submit(motionOf(some, points, pointMs, TimedCommand::MERGE),
                  static_cast<std::int64_t>(phase));
    }
    rig_.engine.pass();
    nextNs_ = host::bootNs();
  }

  void readBack() {
    row_[0] = row_[1] = static_cast<double>(rig_.engine.timeMs());
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      row_[host::rowTimes + i] = host::numberIn(*columns_[i]);
    }
  }

  static constexpr double ringSeconds = 1.0;
  static constexpr std::size_t pointMs = 20;
  static constexpr std::size_t points = 1000;

  const std::string folder_ = newFolder();
  EngineRig rig_;
  host::RecordingHead head_;
  std::vector<const hal::DeviceAttrGeneric*> columns_;
  std::vector<double> row_;
  std::optional<host::Recorder> recorder_;
  host::FlightRecorder* ring_ = nullptr;
  std::int64_t nextNs_ = 0;
  std::uint64_t heapCalls_ = 0;
  Stopwatch watch_;
};

void recordCycles(benchmark::State& state, std::size_t axes, Kind kind) {
  constexpr std::size_t cycles = 3000;
  // The ring is written from two seconds later on.
  constexpr std::size_t wishCycle = 500;
  RecordedRig rig(axes, kind);
  std::vector<double> durations;
  double bytes = 0.0;
  for ([[maybe_unused]] auto iteration : state) {
    for (std::size_t cycle = 0; cycle < cycles; ++cycle) {
      if (cycle == wishCycle) {
        rig.wish();
      }
      durations.push_back(rig.cycle());
    }
    bytes = rig.finish();
    state.SetIterationTime(1.0);
  }
  std::sort(durations.begin(), durations.end());
  state.counters[nsCounter] = quantile(durations, 0.5);
  state.counters["p50"] = quantile(durations, 0.5);
  state.counters["p99"] = quantile(durations, 0.99);
  if (kind == Kind::file) {
    constexpr double cyclesPerHour = 3'600'000.0;
    state.counters["mib_per_hour"] = bytes / static_cast<double>(cycles) * cyclesPerHour / 0x1p20;
  }
  state.counters["dropped"] = rig.droppedRows();
  if (rig.heapCallsOfCycles() > 0) {
    state.SkipWithError("a cycle used the heap");
  }
  if (kind != Kind::none && bytes == 0.0) {
    state.SkipWithError("nothing was written");
  }
}

}  // namespace

void addRecordingBenchmarks() {
  for (const std::size_t axes : {30U, 1000U}) {
    const auto addKind = [axes](const char* name, Kind kind) {
      add(
          "recording/" + std::to_string(axes) + "/" + name,
          [axes, kind](benchmark::State& state) { recordCycles(state, axes, kind); },
          Timer::ownOnce);
    };
    addKind("none", Kind::none);
    addKind("file", Kind::file);
    addKind("ring", Kind::ring);
  }
}

}  // namespace bench
