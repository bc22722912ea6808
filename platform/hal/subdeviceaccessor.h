#pragma once

#include "platform/hal/attributecontainer.h"
#include "platform/hal/attributecontaineraccessor.h"

namespace hal {

/// A handle on a sub-device: an actuator or a sensor.
///
/// The value operations are called inside the control cycle, on the cycle
/// thread, with the timeline lock held: they must not block, allocate or call
/// back into the library. They may throw; the exception passes through to
/// whoever drives the cycle.
class PLATFORM_API SubDeviceAccessor : public AttributeContainerAccessor {
 public:
  SubDeviceAccessor() = default;
  explicit SubDeviceAccessor(SubDevice* subDevice) : AttributeContainerAccessor(subDevice) {}

  /// True for an actuator. Asked while tables are built.
  [[nodiscard]] bool isActuator() const;

  /// True when commands for the "Value" attribute may be interpolated. Asked
  /// while tables are built, for actuators only.
  [[nodiscard]] bool isInterpolationPossible() const;

  /// The command register of the actuator.
  ///
  /// It must read back what `setValueFloat` wrote, bit for bit, until another
  /// party writes it. The library compares the two exactly: a register that
  /// rounds, lags or carries noise looks like an actuator that somebody moves
  /// in every cycle, and the motion is ruined. What the machine measures
  /// belongs to another attribute.
  [[nodiscard]] float getValueFloat() const;

  /// Writes the command register.
  void setValueFloat(float value);

  /// `value` moved into the actuator's limits. What is not a number comes back
  /// as it is.
  [[nodiscard]] float limitMinMaxFloat(float value) const;
};

}  // namespace hal
