#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulation/devicepool/description.h"
#include "simulation/devicepool/poollayout.h"
#include "simulation/devicepool/segment.h"
#include "simulation/machine.h"

namespace simulation {

/// The device pool of a machine: the records in shared memory, and the tables of this process for
/// finding them.
class Pool {
 public:
  /// Builds the records of a description. Throws as the constructor of `Machine` does.
  Pool(const std::string& poolName, const MachineDescription& description,
       std::optional<std::uint32_t> mode);

  [[nodiscard]] bool replacedLeftover() const { return segment_.replacedLeftover(); }
  [[nodiscard]] PoolRecord& record() const { return *record_; }

  /// Throw `Error` for an unknown index.
  [[nodiscard]] SubDeviceRecord& actuator(int index) const;
  [[nodiscard]] SubDeviceRecord& sensor(int index) const;

  /// From now on observers consider the device pool complete.
  void publish() noexcept;

  /// Enclose what a cycle writes. They use no lock, no heap and no locked instruction.
  void beginCycle() noexcept;
  void endCycle(std::int64_t machineTimeMs) noexcept;

 private:
  Pool(const std::string& poolName, const MachineDescription& description,
       std::optional<std::uint32_t> mode, PoolSize size);

  template <typename T>
  T* carve(std::size_t count);
  char* storeText(const std::string& text);
  void beginContainer(hal::AttributeContainer& container, const std::string& name,
                      std::uint8_t kind);
  hal::DeviceAttrGeneric* addAttribute(hal::AttributeContainer& owner, const Attribute& attribute);
  void addContainer(const Container& container);
  void addActuator(const Actuator& actuator);
  void addSensor(const Sensor& sensor);
  void addPreferences(const std::vector<Preference>& preferences);

  Segment segment_;
  std::size_t used_ = 0;
  PoolRecord* record_;
  char* text_;
  std::size_t actuatorCount_;
};

/// The device pool of this process's machine. Throws `Error` when there is none.
Pool& currentPool();
/// Null when there is none.
void setCurrentPool(Pool* pool) noexcept;
bool hasCurrentPool() noexcept;

}  // namespace simulation
