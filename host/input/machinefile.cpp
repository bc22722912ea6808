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
    const YAML::Node& root = yaml_.root();
    const auto fields = yaml_.fields(root, "the machine",
                                     {"name", "urdf", "time_constant", "joints", "devices",
                                      "actuators", "sensors", "preferences"});
    readUrdfNamedIn(fields);
    machine_.paths.push_back(yaml_.path());
    if (const auto name = fields.find("name"); name != fields.end()) {
      machine_.name = yaml_.name(name->second, "name");
    }
    readTimeConstant(fields);
    for (const YAML::Node& joint : yaml_.entries(fields, "joints")) {
      readJoint(joint);
    }
    for (const YAML::Node& device : yaml_.entries(fields, "devices")) {
      readDevice(device);
    }
    for (const YAML::Node& actuator : yaml_.entries(fields, "actuators")) {
      readActuator(actuator);
    }
    for (const YAML::Node& sensor : yaml_.entries(fields, "sensors")) {
      readSensor(sensor);
    }
    // Last: whatever it is, the owner is known by then.
    for (const YAML::Node& preference : yaml_.entries(fields, "preferences")) {
      readPreference(preference);
    }
    if (machine_.description.actuators.empty()) {
      yaml_.fail(root, "the machine has no actuator; give it a urdf or actuators");
    }
    return std::move(machine_);
  }

 private:
  using Fields = YamlFile::Fields;

  void readUrdfNamedIn(const Fields& fields) {
    const auto urdf = fields.find("urdf");
    if (urdf == fields.end()) {
      return;
    }
    const std::filesystem::path named = yaml_.name(urdf->second, "urdf");
    const std::string path =
        (std::filesystem::path(yaml_.path()).parent_path() / named).lexically_normal().string();
    std::string text;
    try {
      text = readFile(path, maxUrdfBytes);
    } catch (const UserError& error) {
      yaml_.fail(urdf->second, fmt::format("the URDF cannot be taken: {}", error.what()));
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
  }

  void readTimeConstant(const Fields& fields) {
    const auto found = fields.find("time_constant");
    if (found == fields.end()) {
      return;
    }
    timeConstant_ = timeConstant(found->second);
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
    if (sensor == sensors_.end()) {
      yaml_.fail(nameNode, fmt::format("the URDF has no movable joint '{}'", name));
    }
    if (const auto seconds = fields.find("time_constant"); seconds != fields.end()) {
      machine_.description.sensors[sensor->second].timeConstant = timeConstant(seconds->second);
    }
    if (const auto value = fields.find("value"); value != fields.end()) {
      const auto actuator = actuators_.find(name);
      if (actuator == actuators_.end()) {
        yaml_.fail(value->second, fmt::format("joint '{}' follows another; it has no value of its "
                                              "own",
                                              name));
      }
      readInitialValue(value->second,
                       machine_.description.actuators[static_cast<std::size_t>(actuator->second)]);
    }
  }

  void readDevice(const YAML::Node& node) {
    const auto fields = yaml_.fields(node, "a device", {"name", "attributes"});
    const YAML::Node& nameNode = yaml_.required(fields, node, "name");
    simulation::Container device;
    device.name = yaml_.name(nameNode, "name");
    if (!devices_.insert(device.name).second) {
      yaml_.fail(nameNode, fmt::format("a second device is named '{}'", device.name));
    }
    std::set<std::string> names;
    for (const YAML::Node& entry : yaml_.entries(fields, "attributes")) {
      takeAttributes(entry, 1);
      device.attributes.push_back(readAttribute(entry));
      takeText(entry, device.attributes.back());
      if (!names.insert(device.attributes.back().name).second) {
        yaml_.fail(entry, fmt::format("a second attribute of '{}' is named '{}'", device.name,
                                      device.attributes.back().name));
      }
    }
    machine_.description.containers.push_back(std::move(device));
  }

  [[nodiscard]] simulation::Attribute readAttribute(const YAML::Node& node) const {
    const auto fields = yaml_.fields(node, "an attribute", {"name", "type", "value"});
    simulation::Attribute attribute;
    attribute.name = yaml_.name(yaml_.required(fields, node, "name"), "name");
    attribute.typeCode = readTypeCode(yaml_, yaml_.required(fields, node, "type"), 0, lastTypeCode);
    attribute.value = readValue(yaml_, fields, attribute.typeCode);
    return attribute;
  }

  void readActuator(const YAML::Node& node) {
    const auto fields =
        yaml_.fields(node, "an actuator",
                     {"name", "type", "law", "value", "minimum", "maximum", "maximum_velocity"});
    simulation::Actuator actuator;
    actuator.name = subDeviceName(fields, node);
    takeAttributes(node, simulation::MachineDescription::attributesPerActuator);
    if (const auto type = fields.find("type"); type != fields.end()) {
      actuator.typeCode = readTypeCode(yaml_, type->second, 1, hal::floatTypeCode);
    }
    readLaw(fields, actuator);
    readLimits(fields, node, actuator);
    if (const auto value = fields.find("value"); value != fields.end()) {
      readInitialValue(value->second, actuator);
    } else {
      setDefaultValue(node, actuator);
    }
    actuators_.emplace(actuator.name, static_cast<int>(machine_.description.actuators.size()));
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
    for (const auto& [key, limit] :
         {std::pair{"minimum", &actuator.minimum}, std::pair{"maximum", &actuator.maximum}}) {
      if (const auto found = fields.find(key); found != fields.end()) {
        const float single = yaml_.singleNumber(found->second, key);
        // Integers are compared with it as it stands.
        *limit = actuator.typeCode == hal::floatTypeCode ? double{single}
                                                         : yaml_.number(found->second, key);
      }
    }
    if (const auto found = fields.find("maximum_velocity"); found != fields.end()) {
      actuator.maximumVelocity = yaml_.singleNumber(found->second, "maximum_velocity");
    }
    if (actuator.minimum > actuator.maximum) {
      yaml_.fail(yaml_.required(fields, node, "minimum"), "minimum lies above maximum");
    }
    if (actuator.maximumVelocity < 0) {
      yaml_.fail(yaml_.required(fields, node, "maximum_velocity"), "maximum_velocity is negative");
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
    const YAML::Node& followed = yaml_.required(fields, node, "actuator");
    const auto actuator = actuators_.find(yaml_.name(followed, "actuator"));
    if (actuator == actuators_.end()) {
      yaml_.fail(followed, fmt::format("the machine has no actuator '{}'", followed.Scalar()));
    }
    sensor.actuator = actuator->second;
    sensor.timeConstant = timeConstant_;
    if (const auto found = fields.find("multiplier"); found != fields.end()) {
      sensor.multiplier = yaml_.singleNumber(found->second, "multiplier");
    }
    if (const auto found = fields.find("offset"); found != fields.end()) {
      sensor.offset = yaml_.singleNumber(found->second, "offset");
    }
    if (const auto found = fields.find("time_constant"); found != fields.end()) {
      sensor.timeConstant = timeConstant(found->second);
    }
    machine_.description.sensors.push_back(std::move(sensor));
  }

  void readPreference(const YAML::Node& node) {
    const auto fields =
        yaml_.fields(node, "a preference", {"owner", "name", "type", "value", "in_use"});
    simulation::Preference preference;
    const YAML::Node& owner = yaml_.required(fields, node, "owner");
    preference.owner = yaml_.name(owner, "owner");
    if (devices_.count(preference.owner) == 0 && subDevices_.count(preference.owner) == 0) {
      yaml_.fail(owner, fmt::format("the machine has no device, actuator or sensor '{}'",
                                    preference.owner));
    }
    preference.name = yaml_.name(yaml_.required(fields, node, "name"), "name");
    preference.typeCode =
        readTypeCode(yaml_, yaml_.required(fields, node, "type"), 0, lastTypeCode);
    preference.value = readValue(yaml_, fields, preference.typeCode);
    textBytes_ += preference.owner.size();
    takeText(node, preference);
    if (const auto found = fields.find("in_use"); found != fields.end()) {
      preference.inUse = yaml_.truth(found->second, "in_use");
    }
    machine_.description.preferences.push_back(std::move(preference));
    if (machine_.description.preferences.size() > simulation::maxPreferences) {
      yaml_.fail(node,
                 fmt::format("a device pool holds {} preferences", simulation::maxPreferences));
    }
  }

  std::string subDeviceName(const Fields& fields, const YAML::Node& owner) {
    const YAML::Node& node = yaml_.required(fields, owner, "name");
    std::string name = yaml_.name(node, "name");
    if (!subDevices_.insert(name).second) {
      yaml_.fail(node, fmt::format("a second actuator or sensor is named '{}'", name));
    }
    return name;
  }

  void takeAttributes(const YAML::Node& node, int count) {
    attributeCount_ += count;
    if (attributeCount_ > simulation::maxAttributes) {
      yaml_.fail(node, fmt::format("the machine up to here needs {} attributes; a device pool "
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
      yaml_.fail(node, fmt::format("the names and texts up to here are longer than {} bytes",
                                   YamlFile::maxBytes));
    }
  }

  const YamlFile& yaml_;
  MachineModel machine_;
  double timeConstant_ = simulation::Sensor().timeConstant;
  std::set<std::string> joints_;
  std::set<std::string> devices_;
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

}  // namespace

MachineModel readMachineFile(const std::string& path) {
  const std::string text = readFile(path, maxUrdfBytes);
  MachineModel machine =
      looksLikeXml(text) ? readUrdf(path, text) : MachineFileReader(YamlFile(path, text)).read();
  if (machine.name.empty()) {
    machine.name = std::filesystem::path(path).stem().string();
  }
  return machine;
}

}  // namespace host
