#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "platform/export.h"
#include "platform/hal/attributecontainer.h"
#include "platform/hal/deviceattrgeneric.h"

/// A simulated platform: a machine is described by plain values and built as a device pool in
/// shared memory. The host moves it on.
namespace simulation {

/// What is wrong with a description, an index or a device pool, in words for a user.
class PLATFORM_API Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The device pool numbers attributes and preferences with 16 bits.
constexpr int maxAttributes = 65535;
constexpr int maxPreferences = 65535;

/// No value, an integer (type codes 1 to 6), a float (7) or a text (8 and 9).
using Value = std::variant<std::monostate, std::int32_t, float, std::string>;

struct Attribute {
  std::string name;
  std::uint8_t typeCode = hal::floatTypeCode;
  Value value = 0.0F;
  bool tracksChanges = false;

  Attribute() = default;
  Attribute(std::string name_, std::uint8_t typeCode_, Value value_)
      : name(std::move(name_)), typeCode(typeCode_), value(std::move(value_)) {}
};

/// A device, or a container of a further kind, which has no attribute keys.
struct Container {
  std::string name;
  std::uint8_t kind = hal::deviceKind;
  std::vector<Attribute> attributes;
};

/// An actuator sub-device with the attributes "Value" (its command register),
/// "Minimum", "Maximum" and "MaximumVelocity".
struct Actuator {
  std::string name;
  Value value = 0.0F;
  std::uint8_t typeCode = hal::floatTypeCode;
  /// In the unit of the value. An infinite limit means that there is none. The device pool holds
  /// them in single precision.
  double minimum = -std::numeric_limits<double>::infinity();
  double maximum = std::numeric_limits<double>::infinity();
  /// In the unit of the value per second.
  float maximumVelocity = std::numeric_limits<float>::infinity();
  bool interpolates = true;
};

/// A sensor sub-device. Its attribute "Value", a float, follows
/// `multiplier` * x + `offset`, where x is the actuator's value behind a
/// first-order lag, moving no faster than the actuator's maximum velocity.
struct Sensor {
  std::string name;
  /// Position in `MachineDescription::actuators`.
  int actuator = 0;
  float multiplier = 1.0F;
  float offset = 0.0F;
  /// Seconds; positive.
  double timeConstant = 0.02;
};

/// A setting of the machine that outlives its power supply.
struct Preference {
  /// The name of a container or sub-device.
  std::string owner;
  /// As stored: the first character is a mark that is part of no key.
  std::string name;
  std::uint8_t typeCode = hal::floatTypeCode;
  Value value = 0.0F;
  /// False: an empty slot of the table.
  bool inUse = true;
};

/// Attributes are numbered in this order: containers, actuators, sensors.
struct MachineDescription {
  static constexpr int attributesPerActuator = 4;
  static constexpr int attributesPerSensor = 1;

  std::vector<Container> containers;
  std::vector<Actuator> actuators;
  std::vector<Sensor> sensors;
  /// In the order of the device pool's table.
  std::vector<Preference> preferences;
};

/// How often something happened to an actuator, modulo 2^32.
struct ActuatorCounters {
  /// Values that the limits changed.
  std::uint32_t limited = 0;
  /// Values that another party wrote.
  std::uint32_t movedFromOutside = 0;
};

/// The path of the device pool with a name. "NAME" belongs to this user, "UID:NAME" to the user
/// with this number. Throws `Error` for an invalid name.
PLATFORM_API std::string poolPath(const std::string& poolName);

/// The machine of this process. From construction to destruction the operations of the hal use its
/// device pool. A process has at most one at a time.
///
/// One thread constructs and destroys it. One thread calls `step`, `beginCycle` and `endCycle`,
/// which are the only operations for the control cycle. Any thread may call the others.
class PLATFORM_API Machine {
 public:
  /// Builds the machine in the shared-memory segment with this name (letters, digits, ".", "_" and
  /// "-"). Each user has separate names (`poolPath`). `poolMode` says who else may read the segment
  /// (only the bits of 0044 count); without it, the umask does. A segment that a killed process
  /// left is replaced. With an empty name the segment is private to this process: nobody can watch
  /// it, and nothing remains after the process.
  ///
  /// Throws `Error` when the description is invalid (an empty name, two sub-devices or two other
  /// containers of one kind with the same name, a value that does not fit its type code, a sensor
  /// on an unknown actuator, a preference of an unknown owner, more attributes or preferences than
  /// fit), when a running process owns the segment, when the file with this name is no segment or
  /// belongs to another user, when out of memory, and when this process already has a machine.
  Machine(const std::string& poolName, const MachineDescription& description,
          std::optional<std::uint32_t> poolMode = std::nullopt);
  /// Removes the segment.
  ~Machine();

  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  /// True when it replaced the segment of a killed process.
  [[nodiscard]] bool replacedLeftover() const;

  /// Advances the sensors by `seconds`. May be called in the control cycle: it does not allocate,
  /// block or throw.
  void step(double seconds) noexcept;

  /// Enclose all that one control cycle writes, including `step`, so that observers can copy the
  /// values of one cycle (`Observer::copyCycle`). Observers see `machineTimeMs` as the time of the
  /// cycle. A cycle that was begun and not ended continues with the next one. May be called in the
  /// control cycle: they do not allocate, block or throw, and use no locked instruction.
  void beginCycle() noexcept;
  void endCycle(std::int64_t machineTimeMs) noexcept;

  /// The attribute that holds the "Value" of an actuator or a sensor.
  [[nodiscard]] const hal::DeviceAttrGeneric& actuatorValue(int actuator) const;
  [[nodiscard]] const hal::DeviceAttrGeneric& sensorValue(int sensor) const;

  /// Writes the value of a float actuator as another party on the machine would, for example a
  /// safety controller. Limits do not apply, and the write is counted.
  void moveFromOutside(int actuator, float value);

  [[nodiscard]] ActuatorCounters counters(int actuator) const;

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace simulation
