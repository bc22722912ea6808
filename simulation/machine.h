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

/// A simulated platform: a machine described in plain values, laid out in a
/// device pool in shared memory, and moved along by the host.
namespace simulation {

/// What is wrong with a description, an index or a pool, in words for a user.
class PLATFORM_API Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The pool numbers attributes and preferences in 16 bits.
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
  /// In the unit of the value; an infinite limit is none. The device pool holds them in
  /// single precision.
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

/// Indexes are given out in this order: containers, actuators, sensors.
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

/// Where the pool of a name lies: "NAME" is this user's, "UID:NAME" that of the user with this
/// number. Throws `Error` for what is no such name.
PLATFORM_API std::string poolPath(const std::string& poolName);

/// The machine of this process: from construction to destruction, the hal's
/// operations answer from its pool. There is one at a time.
///
/// Construction, destruction, and `step` with `beginCycle` and `endCycle` belong to one thread
/// each; the other operations to any. Nothing but these three is meant for the control cycle.
class PLATFORM_API Machine {
 public:
  /// Lays the machine out in the shared-memory segment of this name (letters,
  /// digits, ".", "_" and "-"), which is this user's alone: each has a name space of his own
  /// (`poolPath`). Others may read it as far as `poolMode` permits, of which the bits of 0044
  /// count; without it, as far as the umask leaves them. A segment left by a process that was
  /// killed is replaced. With an empty name the machine is this process's alone: nobody can
  /// watch it, and nothing of it can stay behind.
  ///
  /// Throws `Error` when the description is not sound (an empty name, two
  /// sub-devices or two other containers of one kind with the same name, a
  /// value that does not fit its type code, a sensor on an unknown actuator, a
  /// preference of an unknown owner, more attributes or preferences than fit), when a living
  /// process owns the segment, when something else or somebody else does, when out of memory,
  /// and when this process has a machine already.
  Machine(const std::string& poolName, const MachineDescription& description,
          std::optional<std::uint32_t> poolMode = std::nullopt);
  /// Removes the segment.
  ~Machine();

  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  /// True when the segment of a killed process was replaced.
  [[nodiscard]] bool replacedLeftover() const;

  /// Lets `seconds` pass for the sensors. May be called in the control cycle:
  /// neither allocates nor blocks nor throws.
  void step(double seconds) noexcept;

  /// Around all that one control cycle writes, `step` included, so that observers can copy the
  /// values of one cycle (`Observer::copyCycle`); `machineTimeMs` is what they are told of it. A
  /// cycle that was begun and not ended goes on with the next one. May be called in the control
  /// cycle: neither allocate nor block nor throw, and have no locked instruction.
  void beginCycle() noexcept;
  void endCycle(std::int64_t machineTimeMs) noexcept;

  /// The attribute that holds the "Value" of an actuator or a sensor.
  [[nodiscard]] const hal::DeviceAttrGeneric& actuatorValue(int actuator) const;
  [[nodiscard]] const hal::DeviceAttrGeneric& sensorValue(int sensor) const;

  /// Writes a float actuator's value as another party on the machine would (a
  /// safety controller, say): past the limits, counted.
  void moveFromOutside(int actuator, float value);

  [[nodiscard]] ActuatorCounters counters(int actuator) const;

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace simulation
