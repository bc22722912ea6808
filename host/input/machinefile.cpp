#include "host/input/machinefile.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <utility>
#include <variant>

#include "host/base/textfile.h"
#include "host/input/typedvalue.h"
#include "host/input/urdf.h"
#include "host/input/yaml.h"

namespace host {
namespace {

constexpr std::uint8_t lastTypeCode = std::numeric_limits<std::uint8_t>::max();

class MachineFileReader {
 public:
  explicit MachineFileReader(const YamlFile& yaml) : yaml_(yaml) {}

  MachineModel read() {
    if (yaml_.attempt([this] { readFields(); }) && actuators_.empty()) {
      yaml_.report(yaml_.root(), "the machine has no actuator; give it a urdf or actuators");
    }
    return std::move(machine_);
  }

 private:
  using Fields = YamlFile::Fields;

  void readFields() {
    const auto fields = yaml_.fields(yaml_.root(), "the machine",
                                     {"name", "urdf", "time_constant", "joints", "devices",
                                      "actuators", "sensors", "preferences"});
    yaml_.field(fields, "urdf", [&](const YAML::Node& node) { readUrdfAt(node); });
    machine_.paths.push_back(yaml_.path());
    yaml_.field(fields, "name",
                [&](const YAML::Node& node) { machine_.name = yaml_.name(node, "name"); });
    yaml_.field(fields, "time_constant", [&](const YAML::Node& node) { readTimeConstant(node); });
    for (const char* key : {"devices", "actuators", "sensors"}) {
      const auto list = fields.find(key);
      namesAreComplete_ = namesAreComplete_ && (list == fields.end() || areNamed(list->second));
    }
    readEntries(fields, "joints", &MachineFileReader::readJoint);
    readEntries(fields, "devices", &MachineFileReader::readDevice);
    readEntries(fields, "actuators", &MachineFileReader::readActuator);
    readEntries(fields, "sensors", &MachineFileReader::readSensor);
    // Last: whatever it is, the owner is known by then.
    readEntries(fields, "preferences", &MachineFileReader::readPreference);
  }

  /// Whether what refers to an entry of these can find its name.
  static bool areNamed(const YAML::Node& entries) {
    return entries.IsSequence() &&
           std::all_of(entries.begin(), entries.end(), [](const YAML::Node& entry) {
             const YAML::Node name = entry.IsMap() ? entry["name"] : YAML::Node();
             return name.IsDefined() && name.IsScalar() && !name.Scalar().empty();
           });
  }

  void readEntries(const Fields& fields, const char* key,
                   void (MachineFileReader::*readEntry)(const YAML::Node& node)) {
    yaml_.attempt([&] {
      for (const YAML::Node& entry : yaml_.entries(fields, key)) {
        yaml_.attempt([&] { (this->*readEntry)(entry); });
      }
    });
  }

  /// What is not found may be the one whose name could not be read.
  [[noreturn]] void failAsUnknown(const YAML::Node& node, const std::string& what) const {
    if (!namesAreComplete_) {
      throw AlreadyReported();
    }
    yaml_.fail(node, what);
  }

  void readUrdfAt(const YAML::Node& node) {
    namesAreComplete_ = false;
    const std::filesystem::path named = yaml_.name(node, "urdf");
    const std::string path =
        (std::filesystem::path(yaml_.path()).parent_path() / named).lexically_normal().string();
    std::string text;
    try {
      text = readFile(path, maxUrdfBytes);
    } catch (const UserError& error) {
      yaml_.fail(node, fmt::format("the URDF cannot be taken: {}", error.what()));
    }
    machine_ = readUrdf(path, text);
    const auto& description = machine_.description;
    for (std::size_t i = 0; i < description.actuators.size(); ++i) {
      subDevices_.insert(description.actuators[i].name);
      actuators_.emplace(description.actuators[i].name, static_cast<int>(i));
    }
    for (std::size_t i = 0; i < description.sensors.size(); ++i) {
      subDevices_.insert(description.sensors[i].name);
      sensors_.emplace(description.sensors[i].name, i);
    }
    attributeCount_ = simulation::MachineDescription::attributesPerActuator *
                          static_cast<int>(description.actuators.size()) +
                      simulation::MachineDescription::attributesPerSensor *
                          static_cast<int>(description.sensors.size());
    namesAreComplete_ = true;
  }

  void readTimeConstant(const YAML::Node& node) {
    timeConstant_ = timeConstant(node);
    for (simulation::Sensor& sensor : machine_.description.sensors) {
      sensor.timeConstant = timeConstant_;
    }
  }

  [[nodiscard]] double timeConstant(const YAML::Node& node) const {
    const double seconds = yaml_.number(node, "time_constant");
    if (seconds <= 0) {
      yaml_.fail(node, "time_constant must be a number of seconds above 0");
    }
    return seconds;
  }

  void readJoint(const YAML::Node& node) {
    const auto fields = yaml_.fields(node, "a joint", {"name", "value", "time_constant"});
    const YAML::Node& nameNode = yaml_.required(fields, node, "name");
    const std::string name = yaml_.name(nameNode, "name");
    if (!joints_.insert(name).second) {
      yaml_.fail(nameNode, fmt::format("joint '{}' is named twice", name));
    }
    const auto sensor = sensors_.find(name + "/Sensor");
    yaml_.field(fields, "time_constant", [&](const YAML::Node& timeNode) {
      const double seconds = timeConstant(timeNode);
      if (sensor != sensors_.end()) {
        machine_.description.sensors[sensor->second].timeConstant = seconds;
      }
    });
    if (sensor == sensors_.end()) {
      failAsUnknown(nameNode, fmt::format("the URDF has no movable joint '{}'", name));
    }
    yaml_.field(fields, "value", [&](const YAML::Node& value) {
      const auto actuator = actuators_.find(name);
      if (actuator == actuators_.end()) {
        yaml_.fail(value,
                   fmt::format("joint '{}' follows another; it has no value of its own", name));
      }
      readInitialValue(value,
                       machine_.description.actuators[static_cast<std::size_t>(actuator->second)]);
    });
  }

  void readDevice(const YAML::Node& node) {
    const auto fields = yaml_.fields(node, "a device", {"name", "attributes"});
    simulation::Container device;
    yaml_.requiredField(fields, node, "name", [&](const YAML::Node& name) {
      device.name = yaml_.name(name, "name");
      if (!devices_.insert(device.name).second) {
        yaml_.fail(name, fmt::format("a second device is named '{}'", device.name));
      }
    });
    std::set<std::string> names;
    for (const YAML::Node& entry : yaml_.entries(fields, "attributes")) {
      takeAttributes(entry, 1);
      yaml_.attempt([&] {
        device.attributes.push_back(readAttribute(entry));
        takeText(entry, device.attributes.back());
        if (!names.insert(device.attributes.back().name).second) {
          yaml_.fail(entry, fmt::format("a second attribute of '{}' is named '{}'", device.name,
                                        device.attributes.back().name));
        }
      });
    }
    machine_.description.containers.push_back(std::move(device));
  }

  [[nodiscard]] simulation::Attribute readAttribute(const YAML::Node& node) const {
    const auto fields = yaml_.fields(node, "an attribute", {"name", "type", "value"});
    simulation::Attribute attribute;
    yaml_.requiredField(fields, node, "name",
                        [&](const YAML::Node& name) { attribute.name = yaml_.name(name, "name"); });
    readTypedValue(fields, node, attribute);
    return attribute;
  }

  template <typename Typed>
  void readTypedValue(const Fields& fields, const YAML::Node& node, Typed& typed) const {
    typed.typeCode = readTypeCode(yaml_, yaml_.required(fields, node, "type"), 0, lastTypeCode);
    typed.value = readValue(yaml_, fields, typed.typeCode);
  }

  void readActuator(const YAML::Node& node) {
    const auto fields =
        yaml_.fields(node, "an actuator",
                     {"name", "type", "law", "value", "minimum", "maximum", "maximum_velocity"});
    simulation::Actuator actuator;
    actuator.name = subDeviceName(fields, node);
    actuators_.emplace(actuator.name, static_cast<int>(machine_.description.actuators.size()));
    takeAttributes(node, simulation::MachineDescription::attributesPerActuator);
    if (const auto type = fields.find("type"); type != fields.end()) {
      actuator.typeCode = readTypeCode(yaml_, type->second, 1, hal::floatTypeCode);
    }
    yaml_.attempt([&] { readLaw(fields, actuator); });
    if (yaml_.attempt([&] { readLimits(fields, node, actuator); })) {
      if (const auto value = fields.find("value"); value != fields.end()) {
        readInitialValue(value->second, actuator);
      } else {
        setDefaultValue(node, actuator);
      }
    }
    machine_.description.actuators.push_back(std::move(actuator));
  }

  void readLaw(const Fields& fields, simulation::Actuator& actuator) const {
    const bool isFloat = actuator.typeCode == hal::floatTypeCode;
    actuator.interpolates = isFloat;
    const auto found = fields.find("law");
    if (found == fields.end()) {
      return;
    }
    const std::string law = yaml_.text(found->second, "law");
    if (law != "linear" && law != "step") {
      yaml_.fail(found->second, fmt::format("law is '{}'; use linear or step", law));
    }
    if (law == "linear" && !isFloat) {
      yaml_.fail(found->second, "only an actuator of type 7 (float) can follow the linear law");
    }
    actuator.interpolates = law == "linear";
  }

  void readLimits(const Fields& fields, const YAML::Node& node,
                  simulation::Actuator& actuator) const {
    bool sound = true;
    for (const auto& [key, limit] :
         {std::pair{"minimum", &actuator.minimum}, std::pair{"maximum", &actuator.maximum}}) {
      sound = yaml_.field(fields, key, [&, name = key, into = limit](const YAML::Node& found) {
        const float single = yaml_.singleNumber(found, name);
        // Integers are compared with it as it stands.
        *into =
            actuator.typeCode == hal::floatTypeCode ? double{single} : yaml_.number(found, name);
      }) && sound;
    }
    yaml_.field(fields, "maximum_velocity", [&](const YAML::Node& found) {
      actuator.maximumVelocity = yaml_.singleNumber(found, "maximum_velocity");
      if (actuator.maximumVelocity < 0) {
        yaml_.fail(found, "maximum_velocity is negative");
      }
    });
    if (sound && actuator.minimum > actuator.maximum) {
      yaml_.fail(yaml_.required(fields, node, "minimum"), "minimum lies above maximum");
    }
  }

  void readInitialValue(const YAML::Node& node, simulation::Actuator& actuator) const {
    // Floats are compared as they are kept: 0.7 lies above 0.7 in single precision.
    const bool isFloat = actuator.typeCode == hal::floatTypeCode;
    const double value =
        isFloat ? double{yaml_.singleNumber(node, "value")} : yaml_.number(node, "value");
    if (value < actuator.minimum || value > actuator.maximum) {
      const auto shown = [isFloat](double number) {
        return isFloat ? fmt::format("{}", static_cast<float>(number)) : fmt::format("{}", number);
      };
      yaml_.fail(node,
                 fmt::format("the value {} of '{}' lies outside its limits {} to {}", shown(value),
                             actuator.name, shown(actuator.minimum), shown(actuator.maximum)));
    }
    actuator.value =
        isFloat ? simulation::Value(static_cast<float>(value)) : readInteger(yaml_, node, "value");
  }

  /// As near to 0 as the limits allow.
  void setDefaultValue(const YAML::Node& node, simulation::Actuator& actuator) const {
    const double nearest = std::clamp(0.0, actuator.minimum, actuator.maximum);
    if (actuator.typeCode == hal::floatTypeCode) {
      actuator.value = static_cast<float>(nearest);
    } else if (nearest == 0.0) {
      actuator.value = 0;
    } else {
      yaml_.fail(node, "the key 'value' is missing: 0 lies outside the limits");
    }
  }

  void readSensor(const YAML::Node& node) {
    const auto fields = yaml_.fields(node, "a sensor",
                                     {"name", "actuator", "multiplier", "offset", "time_constant"});
    simulation::Sensor sensor;
    sensor.name = subDeviceName(fields, node);
    takeAttributes(node, simulation::MachineDescription::attributesPerSensor);
    yaml_.requiredField(fields, node, "actuator", [&](const YAML::Node& followed) {
      const auto actuator = actuators_.find(yaml_.name(followed, "actuator"));
      if (actuator == actuators_.end()) {
        failAsUnknown(followed, fmt::format("the machine has no actuator '{}'", followed.Scalar()));
      }
      sensor.actuator = actuator->second;
    });
    sensor.timeConstant = timeConstant_;
    yaml_.field(fields, "multiplier", [&](const YAML::Node& multiplier) {
      sensor.multiplier = yaml_.singleNumber(multiplier, "multiplier");
    });
    yaml_.field(fields, "offset", [&](const YAML::Node& offset) {
      sensor.offset = yaml_.singleNumber(offset, "offset");
    });
    yaml_.field(fields, "time_constant",
                [&](const YAML::Node& seconds) { sensor.timeConstant = timeConstant(seconds); });
    machine_.description.sensors.push_back(std::move(sensor));
  }

  void readPreference(const YAML::Node& node) {
    const auto fields =
        yaml_.fields(node, "a preference", {"owner", "name", "type", "value", "in_use"});
    simulation::Preference preference;
    yaml_.requiredField(fields, node, "owner", [&](const YAML::Node& owner) {
      preference.owner = yaml_.name(owner, "owner");
      if (devices_.count(preference.owner) == 0 && subDevices_.count(preference.owner) == 0) {
        failAsUnknown(owner, fmt::format("the machine has no device, actuator or sensor '{}'",
                                         preference.owner));
      }
    });
    yaml_.requiredField(fields, node, "name", [&](const YAML::Node& name) {
      preference.name = yaml_.name(name, "name");
    });
    yaml_.field(fields, "in_use",
                [&](const YAML::Node& inUse) { preference.inUse = yaml_.truth(inUse, "in_use"); });
    readTypedValue(fields, node, preference);
    textBytes_ += preference.owner.size();
    takeText(node, preference);
    machine_.description.preferences.push_back(std::move(preference));
    if (machine_.description.preferences.size() > simulation::maxPreferences) {
      yaml_.stop(node,
                 fmt::format("a device pool holds {} preferences", simulation::maxPreferences));
    }
  }

  /// Empty where it cannot be read.
  std::string subDeviceName(const Fields& fields, const YAML::Node& owner) {
    std::string name;
    yaml_.requiredField(fields, owner, "name", [&](const YAML::Node& node) {
      name = yaml_.name(node, "name");
      if (!subDevices_.insert(name).second) {
        yaml_.fail(node, fmt::format("a second actuator or sensor is named '{}'", name));
      }
    });
    return name;
  }

  void takeAttributes(const YAML::Node& node, int count) {
    attributeCount_ += count;
    if (attributeCount_ > simulation::maxAttributes) {
      yaml_.stop(node, fmt::format("the machine up to here needs {} attributes; a device pool "
                                   "holds {}",
                                   attributeCount_, simulation::maxAttributes));
    }
  }

  /// A short file may name one text many times.
  template <typename Named>
  void takeText(const YAML::Node& node, const Named& named) {
    const auto* const text = std::get_if<std::string>(&named.value);
    textBytes_ += named.name.size() + (text == nullptr ? 0 : text->size());
    if (textBytes_ > YamlFile::maxBytes) {
      yaml_.stop(node, fmt::format("the names and texts up to here are longer than {} bytes",
                                   YamlFile::maxBytes));
    }
  }

  const YamlFile& yaml_;
  MachineModel machine_;
  double timeConstant_ = simulation::Sensor().timeConstant;
  std::set<std::string> joints_;
  std::set<std::string> devices_;
  /// No entry, and not the URDF, is so broken that its name is missing below.
  bool namesAreComplete_ = true;
  /// Names of actuators and sensors.
  std::set<std::string> subDevices_;
  std::map<std::string, int> actuators_;
  /// Those of the URDF, by name.
  std::map<std::string, std::size_t> sensors_;
  int attributeCount_ = 0;
  /// Of attributes and preferences.
  std::size_t textBytes_ = 0;
};

bool looksLikeXml(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \t\r\n\xEF\xBB\xBF");
  return first != std::string::npos && text[first] == '<';
}

MachineModel readYaml(const std::string& path, const std::string& text) {
  ErrorCollector errors;
  MachineModel machine;
  errors.attempt([&] { machine = MachineFileReader(YamlFile(path, text, errors)).read(); });
  errors.throwIfAny();
  return machine;
}

}  // namespace

MachineModel readMachineFile(const std::string& path) {
  const std::string text = readFile(path, maxUrdfBytes);
  MachineModel machine = looksLikeXml(text) ? readUrdf(path, text) : readYaml(path, text);
  if (machine.name.empty()) {
    machine.name = std::filesystem::path(path).stem().string();
  }
  return machine;
}

}  // namespace host
