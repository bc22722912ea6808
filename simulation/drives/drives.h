#pragma once

#include <vector>

#include "simulation/devicepool/poollayout.h"
#include "simulation/machine.h"

namespace simulation {

/// The simulated drives and their sensors. A real machine has a bus here.
///
/// Each sensor follows the command register of its actuator with a first-order lag, and at most at
/// the maximum velocity of the actuator.
class Drives {
 public:
  /// Adds a sensor that measures the register of an actuator. The records must outlive this object.
  void add(const Sensor& description, SubDeviceRecord& actuator, SubDeviceRecord& sensor);

  /// Reads the commands from the registers, advances the drives by `seconds`, and writes what the
  /// sensors then measure. May be called in the control cycle: it does not allocate or block.
  void exchange(double seconds) noexcept;

 private:
  struct Drive {
    SubDeviceRecord* actuator;
    SubDeviceRecord* sensor;
    Sensor description;
    /// The command behind the lag, more precise than the value of the sensor.
    double position;
  };

  std::vector<Drive> drives_;
};

}  // namespace simulation
