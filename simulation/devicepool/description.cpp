#include "simulation/devicepool/description.h"

#include <cmath>
#include <set>
#include <utility>

namespace simulation {
namespace {

/// Checks a description in one pass, and adds up what it needs.
class Checker {
 public:
  PoolSize check(const MachineDescription& description) {
    for (const Container& container : description.containers) {
      checkContainer(container);
    }
    for (const Actuator& actuator : description.actuators) {
      checkActuator(actuator);
    }
    for (const Sensor& sensor : description.sensors) {
      checkSensor(sensor, description.actuators.size());
    }
    for (const Preference& preference : description.preferences) {
      checkPreference(preference);
    }
    if (description.preferences.size() > static_cast<std::size_t>(maxPreferences)) {
      throw Error("the device pool is full: " + std::to_string(description.preferences.size()) +
                  " preferences, at most " + std::to_string(maxPreferences) + " fit");
    }
    if (size_.attributes > static_cast<std::size_t>(maxAttributes)) {
      throw Error("the device pool is full: " + std::to_string(size_.attributes) +
                  " attributes, at most " + std::to_string(maxAttributes) + " fit");
    }
    return size_;
  }

 private:
  void checkContainer(const Container& container) {
    if (container.kind == hal::subDeviceKind) {
      throw Error("container '" + container.name +
                  "' is a sub-device; describe it as an actuator or a sensor");
    }
    takeContainerName(container.kind, container.name);
    std::set<std::string> names;
    for (const Attribute& attribute : container.attributes) {
      const std::string owned = "attribute '" + attribute.name + "' of '" + container.name + "'";
      if (attribute.name.empty()) {
        throw Error("an attribute of '" + container.name + "' has an empty name");
      }
      if (!names.insert(attribute.name).second) {
        throw Error("duplicate " + owned);
      }
      takeAttribute(owned, attribute);
    }
  }

  void checkActuator(const Actuator& actuator) {
    takeContainerName(hal::subDeviceKind, actuator.name);
    if (!(actuator.minimum <= actuator.maximum)) {
      throw Error("actuator '" + actuator.name + "' has a minimum above its maximum");
    }
    if (!(actuator.maximumVelocity >= 0)) {
      throw Error("actuator '" + actuator.name + "' has a negative maximum velocity");
    }
    for (const Attribute& attribute : attributesOf(actuator)) {
      takeAttribute("the value of actuator '" + actuator.name + "'", attribute);
    }
  }

  void checkSensor(const Sensor& sensor, std::size_t actuators) {
    takeContainerName(hal::subDeviceKind, sensor.name);
    if (sensor.actuator < 0 || static_cast<std::size_t>(sensor.actuator) >= actuators) {
      throw Error("sensor '" + sensor.name + "' follows the unknown actuator " +
                  std::to_string(sensor.actuator));
    }
    if (!(sensor.timeConstant > 0) || !std::isfinite(sensor.multiplier) ||
        !std::isfinite(sensor.offset)) {
      throw Error("sensor '" + sensor.name +
                  "' needs a time constant above 0 and a finite multiplier and offset");
    }
    for (const Attribute& attribute : attributesOf(sensor)) {
      takeAttribute("the value of sensor '" + sensor.name + "'", attribute);
    }
  }

  void takeContainerName(std::uint8_t kind, const std::string& name) {
    if (name.empty()) {
      throw Error("a container of kind " + std::to_string(kind) + " has an empty name");
    }
    checkText("the name of a container", name);
    if (!containerNames_.emplace(kind, name).second) {
      throw Error("two containers of kind " + std::to_string(kind) + " are named '" + name + "'");
    }
    owners_.insert(name);
    size_.textBytes += name.size() + 1;
  }

  void checkPreference(const Preference& preference) {
    if (preference.name.empty()) {
      throw Error("a preference of '" + preference.owner + "' has an empty name");
    }
    if (owners_.count(preference.owner) == 0) {
      throw Error("preference '" + preference.name + "' belongs to the unknown '" +
                  preference.owner + "'");
    }
    checkText("a preference's name", preference.name);
    size_.textBytes += preference.name.size() + 1;
    takeValue("preference '" + preference.name + "'", preference.typeCode, preference.value);
  }

  /// In the device pool, texts end at the first NUL.
  static void checkText(const std::string& owner, const std::string& text) {
    if (text.find('\0') != std::string::npos) {
      throw Error(owner + " holds a NUL character");
    }
  }

  void takeAttribute(const std::string& owner, const Attribute& attribute) {
    checkText(owner, attribute.name);
    takeValue(owner, attribute.typeCode, attribute.value);
    ++size_.attributes;
    size_.textBytes += attribute.name.size() + 1;
  }

  void takeValue(const std::string& owner, std::uint8_t typeCode, const Value& value) {
    bool fits = std::holds_alternative<std::monostate>(value);
    if (typeCode >= 1 && typeCode <= 6) {
      fits = std::holds_alternative<std::int32_t>(value);
    } else if (typeCode == hal::floatTypeCode) {
      fits = std::holds_alternative<float>(value);
    } else if (typeCode == 8 || typeCode == 9) {
      fits = std::holds_alternative<std::string>(value);
    }
    if (!fits) {
      throw Error(owner + " does not fit its type code " + std::to_string(typeCode) +
                  " (1 to 6: integer, 7: float, 8 and 9: text, others: none)");
    }
    if (const auto* text = std::get_if<std::string>(&value)) {
      checkText(owner, *text);
      size_.textBytes += text->size() + 1;
    }
  }

  std::set<std::pair<std::uint8_t, std::string>> containerNames_;
  std::set<std::string> owners_;
  PoolSize size_;
};

}  // namespace

// The value is assigned and not copied: in GCC 12 a copy of a variant that throws destroys a value
// that was never constructed.
std::vector<Attribute> attributesOf(const Actuator& actuator) {
  std::vector<Attribute> attributes = {
      {"Value", actuator.typeCode, {}},
      {"Minimum", hal::floatTypeCode, static_cast<float>(actuator.minimum)},
      {"Maximum", hal::floatTypeCode, static_cast<float>(actuator.maximum)},
      {"MaximumVelocity", hal::floatTypeCode, actuator.maximumVelocity}};
  attributes[0].value = actuator.value;
  return attributes;
}

std::vector<Attribute> attributesOf(const Sensor& sensor) {
  return {{"Value", hal::floatTypeCode, sensor.offset}};
}

PoolSize checkDescription(const MachineDescription& description) {
  return Checker().check(description);
}

}  // namespace simulation
