#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/engine/engine.h"

namespace host {

/// The values of the latest cycles, so that who looks now and then misses none: command registers
/// and sensors. The cycle writes, and waits for nobody; any thread reads.
class CycleRing {
 public:
  struct Column {
    /// In full.
    std::string key;
    const hal::DeviceAttrGeneric* attribute;
  };
  struct Cycle {
    /// Counted from 1.
    std::uint64_t number = 0;
    std::int64_t timeMs = 0;
    /// In the order of the columns, the bits of each.
    std::vector<std::int32_t> values;
  };

  /// The engine's machine must outlive the object.
  CycleRing(Engine& engine, const MachineModel& machine);

  [[nodiscard]] const std::vector<Column>& columns() const { return columns_; }

  /// Cycle thread, at the end of each cycle: allocates nothing.
  void add(std::int64_t timeMs) noexcept;

  /// How many were added: the number of the latest one.
  [[nodiscard]] std::uint64_t count() const noexcept {
    return done_.load(std::memory_order_acquire);
  }
  /// The earliest one that will be there for a while.
  [[nodiscard]] std::uint64_t oldest() const noexcept;
  /// False when the cycle is there no more, or not yet.
  bool read(std::uint64_t number, Cycle& cycle) const;

 private:
  std::vector<Column> columns_;
  /// Of each row.
  std::vector<std::atomic<std::int64_t>> times_;
  /// Row by row.
  std::vector<std::atomic<std::int32_t>> values_;
  /// How many have begun to be written, and how many were.
  std::atomic<std::uint64_t> begun_{0};
  std::atomic<std::uint64_t> done_{0};
};

}  // namespace host
