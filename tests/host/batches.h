#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <vector>

#include "host/input/commandbatch.h"
#include "host/motion/event.h"
#include "tests/support/random.h"

/// Counts events of each kind, and the points and rounds that they are about.
class Tally : public host::Listener {
 public:
  struct Sum {
    std::uint64_t events = 0, points = 0, rounds = 0;
  };

  void tell(const host::Event& event, const host::Point* /*points*/) override {
    Sum& sum = sums_[static_cast<std::size_t>(event.kind)];
    ++sum.events;
    sum.points += event.count;
    sum.rounds += event.rounds;
  }
  [[nodiscard]] const Sum& of(host::EventKind kind) const {
    return sums_[static_cast<std::size_t>(kind)];
  }

 private:
  std::array<Sum, host::eventKinds> sums_;
};

/// A machine with one actuator, "a", without limits.
inline host::MachineModel oneAxis() {
  host::MachineModel machine;
  machine.description.actuators.emplace_back().name = "a";
  return machine;
}

/// A timeline without bounds, as the rules of the library have it.
struct NaiveTimeline {
  std::vector<host::Point> points;

  /// The result is what it cleared.
  std::vector<host::Point> push(const std::vector<host::Point>& news,
                                TimedCommand::commandType mode) {
    const auto isCleared = [&](const host::Point& point) {
      return mode == TimedCommand::REPLACE ||
             (mode == TimedCommand::CLEAR_AFTER && !news.empty() &&
              point.timeMs >= news.front().timeMs) ||
             (mode == TimedCommand::CLEAR_BEFORE && !news.empty() &&
              point.timeMs <= news.back().timeMs);
    };
    const auto kept = std::stable_partition(points.begin(), points.end(), isCleared);
    std::vector<host::Point> cleared(points.begin(), kept);
    points.erase(points.begin(), kept);
    points.insert(points.begin(), news.begin(), news.end());
    std::stable_sort(points.begin(), points.end(),
                     [](const auto& one, const auto& other) { return one.timeMs < other.timeMs; });
    return cleared;
  }
};

/// For some of the machine's actuators, fewer points than this, at most so far apart. It may
/// repeat, for at most 20 s and this many points.
inline host::CommandBatch randomBatch(Random& random, const host::MachineModel& machine,
                                      std::uint32_t points, std::uint32_t widestMs,
                                      std::uint32_t mostRepeated) {
  host::CommandBatch batch;
  batch.mode = static_cast<TimedCommand::commandType>(1 + random.below(4));
  const auto axes = static_cast<std::uint32_t>(machine.description.actuators.size());
  for (std::uint32_t i = 0, sure = random.below(axes); i < axes; ++i) {
    if (i == sure || random.chance(50)) {
      batch.actuators.push_back(static_cast<int>(i));
    }
  }
  const std::uint32_t gridMs = random.chance(50) ? 10 : 1;
  const bool fewValues = random.chance(30);
  std::uint32_t timeMs = random.below(200);
  for (std::uint32_t i = random.below(points); i > 0; --i, timeMs += random.below(widestMs + 1)) {
    batch.times.push_back(timeMs / gridMs * gridMs);
    batch.locations.emplace_back();
    for (const int actuator : batch.actuators) {
      const auto drawn = static_cast<float>(fewValues ? random.below(3) * 125 : random.below(1000));
      hal::AttrGeneric& value = batch.values.emplace_back(drawn / 250.0F - 2.0F);
      if (machine.actuator(actuator).typeCode != hal::floatTypeCode) {
        value.asInt = static_cast<std::int32_t>(2.0F * value.asFloat);
      }
    }
  }
  if (!batch.times.empty() && batch.times.back() > 0 && random.chance(30)) {
    const auto each = static_cast<std::uint32_t>(batch.times.size());
    batch.repeat += random.below(std::min(mostRepeated / each, 20'000 / batch.times.back()) + 1);
  }
  return batch;
}

/// Gives velocities to some of its points, and accelerations to some of those.
inline void bend(host::CommandBatch& batch, Random& random) {
  constexpr float none = std::numeric_limits<float>::quiet_NaN();
  const std::uint32_t share = 50 + random.below(60), accelerated = random.below(150);
  for (std::size_t i = 0; i < batch.values.size(); ++i) {
    const bool moves = random.chance(share);
    const bool known = moves && random.chance(accelerated);
    batch.velocities.push_back(moves ? static_cast<float>(random.below(200)) / 50 - 2 : none);
    batch.accelerations.push_back(known ? static_cast<float>(random.below(200)) / 50 - 2 : none);
  }
}

/// The same with all rounds written out.
inline host::CommandBatch writtenOut(const host::CommandBatch& batch) {
  host::CommandBatch all = batch;
  all.repeat = 1;
  const auto columns = static_cast<std::ptrdiff_t>(batch.actuators.size());
  for (std::uint32_t round = 1; round < batch.repeat; ++round) {
    for (std::size_t i = 0; i < batch.times.size(); ++i) {
      if (batch.times[i] == 0) {
        continue;
      }
      all.times.push_back(batch.times[i] + round * batch.times.back());
      all.locations.emplace_back();
      const auto copyRow = [&, row = static_cast<std::ptrdiff_t>(i)](const auto& from, auto& to) {
        if (!from.empty()) {
          to.insert(to.end(), from.begin() + row * columns, from.begin() + (row + 1) * columns);
        }
      };
      copyRow(batch.values, all.values);
      copyRow(batch.velocities, all.velocities);
      copyRow(batch.accelerations, all.accelerations);
    }
  }
  return all;
}
