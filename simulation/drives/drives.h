#pragma once

#include <vector>

#include "simulation/devicepool/poollayout.h"
#include "simulation/machine.h"

namespace simulation {

/// The simulated drives and what measures them: where a real machine has a bus.
///
/// Each sensor follows the command register of its actuator with a first-order lag, no
/// faster than the actuator's maximum velocity.
class Drives {
 public:
  /// The sensor measures what the actuator's register holds. The records must outlive this.
  void add(const Sensor& description, SubDeviceRecord& actuator, SubDeviceRecord& sensor);

  /// Takes the commands out of the registers, lets `seconds` pass, and lays down what is
  /// measured then. May be called in the control cycle: neither allocates nor blocks.
  void exchange(double seconds) noexcept;

 private:
  struct Drive {
    SubDeviceRecord* actuator;
    SubDeviceRecord* sensor;
    Sensor description;
    /// The lagged command, finer than what the sensor shows.
    double position;
  };

  std::vector<Drive> drives_;
};

}  // namespace simulation
