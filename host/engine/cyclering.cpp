#include "host/engine/cyclering.h"

#include <algorithm>

#include "host/engine/axis.h"

namespace host {
namespace {

std::vector<CycleRing::Column> columnsOf(Engine& engine, const MachineModel& machine) {
  std::vector<CycleRing::Column> columns;
  for (const Axis& axis : engine.axes()) {
    columns.push_back({valueKey(axis.actuator), axis.command});
  }
  int sensor = 0;
  for (const simulation::Sensor& described : machine.description.sensors) {
    columns.push_back({valueKey(described.name), &engine.machine().sensorValue(sensor++)});
  }
  return columns;
}

/// A second at a thousand cycles a second, within bounds for memory.
std::size_t rowsOfRing(std::size_t columns) {
  constexpr std::size_t rows = 1024;
  constexpr std::size_t mostNumbers = std::size_t{1} << 22;
  constexpr std::size_t leastRows = 64;
  return std::clamp(mostNumbers / columns, leastRows, rows);
}

}  // namespace

CycleRing::CycleRing(Engine& engine, const MachineModel& machine)
    : columns_(columnsOf(engine, machine)),
      times_(rowsOfRing(columns_.size())),
      values_(times_.size() * columns_.size()) {}

// Each number is released and acquired: who has read one that is newer than the row which he wants
// then sees that this row was begun anew.

void CycleRing::add(std::int64_t timeMs) noexcept {
  const std::uint64_t index = begun_.load(std::memory_order_relaxed);
  begun_.store(index + 1, std::memory_order_relaxed);
  const std::size_t row = index % times_.size();
  times_[row].store(timeMs, std::memory_order_release);
  std::atomic<std::int32_t>* value = &values_[row * columns_.size()];
  for (const Column& column : columns_) {
    (value++)->store(bitsIn(*column.attribute), std::memory_order_release);
  }
  done_.store(index + 1, std::memory_order_release);
}

std::uint64_t CycleRing::oldest() const noexcept {
  const std::uint64_t kept = times_.size() / 4 * 3;
  const std::uint64_t latest = count();
  return latest > kept ? latest - kept + 1 : 1;
}

bool CycleRing::read(std::uint64_t number, Cycle& cycle) const {
  if (number == 0 || number > count()) {
    return false;
  }
  const std::size_t row = (number - 1) % times_.size();
  cycle.number = number;
  cycle.timeMs = times_[row].load(std::memory_order_acquire);
  cycle.values.clear();
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    cycle.values.push_back(values_[row * columns_.size() + i].load(std::memory_order_acquire));
  }
  return begun_.load(std::memory_order_relaxed) < number + times_.size();
}

}  // namespace host
