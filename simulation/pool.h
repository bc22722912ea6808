#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "simulation/description.h"
#include "simulation/machine.h"
#include "simulation/poollayout.h"
#include "simulation/segment.h"

namespace simulation {

/// The device pool of a machine: the records in shared memory, and what this
/// process needs to find its way among them.
class Pool {
 public:
  /// Lays out a description; throws as `Machine` does.
  Pool(const std::string& poolName, const MachineDescription& description);

  [[nodiscard]] bool replacedLeftover() const { return segment_.replacedLeftover(); }
  [[nodiscard]] PoolRecord& record() const { return *record_; }

  /// Throw `Error` for an unknown index.
  [[nodiscard]] SubDeviceRecord& actuator(int index) const;
  [[nodiscard]] SubDeviceRecord& sensor(int index) const;

  /// See `Machine::step`.
  void step(double seconds) noexcept;

 private:
  struct SensorState {
    SubDeviceRecord* actuator;
    SubDeviceRecord* sensor;
    Sensor description;
    /// The lagged value of the actuator, finer than what the sensor shows.
    double position;
  };

  Pool(const std::string& poolName, const MachineDescription& description, PoolSize size);

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
  std::vector<SensorState> sensors_;
};

/// The pool of this process's machine; throws `Error` when there is none.
Pool& currentPool();
/// Null when there is none.
void setCurrentPool(Pool* pool) noexcept;
bool hasCurrentPool() noexcept;

}  // namespace simulation
