#include "host/input/subdevices.h"

#include <fmt/format.h>

#include <set>
#include <utility>

#include "host/input/typedvalue.h"

namespace host {
namespace {

using Fields = YamlFile::Fields;

/// The known keys of an entry with limits.
std::set<std::string> withLimits(std::set<std::string> keys) {
  for (const LimitField& field : limitFields) {
    keys.insert(field.key);
  }
  return keys;
}

/// Over what was given before.
void readLimits(const YamlFile& yaml, const Fields& fields, ActuatorFields& given) {
  for (const LimitField& field : limitFields) {
    yaml.field(fields, field.key, [&](const YAML::Node& node) {
      std::optional<GivenNumber>& limit = given.*field.given;
      limit = GivenNumber{yaml.at(node)};
      // The device pool holds it in single precision; integers are compared with it as it stands.
      (void)yaml.singleNumber(node, field.key);
      limit->number = yaml.number(node, field.key);
    });
  }
}

void readValue(const YamlFile& yaml, const Fields& fields, std::uint8_t typeCode,
               ActuatorFields& given) {
  yaml.field(fields, "value", [&](const YAML::Node& node) {
    given.value = GivenNumber{yaml.at(node)};
    given.value->number = typeCode == hal::floatTypeCode
                              ? double{yaml.singleNumber(node, "value")}
                              : static_cast<double>(readInteger(yaml, node, "value"));
  });
}

void readApproach(const YamlFile& yaml, const Fields& fields, ActuatorFields& given) {
  yaml.field(fields, "approach_velocity", [&](const YAML::Node& node) {
    given.approachVelocity = readApproachVelocity(yaml, node);
  });
}

/// "law" is the older word.
void readInterpolation(const YamlFile& yaml, const Fields& fields, simulation::Actuator& actuator) {
  const bool isFloat = actuator.typeCode == hal::floatTypeCode;
  actuator.interpolates = isFloat;
  const auto older = fields.find("law");
  const auto found = older == fields.end() ? fields.find("interpolation") : older;
  if (found == fields.end()) {
    return;
  }
  if (older != fields.end() && fields.count("interpolation") != 0) {
    yaml.fail(older->second, "law is the older word for interpolation; use one of the two");
  }
  const std::string given = yaml.text(found->second, found->first.c_str());
  if (given != "linear" && given != "step") {
    yaml.fail(found->second,
              fmt::format("{} is '{}'; use linear or step", found->first, given.substr(0, 40)));
  }
  if (given == "linear" && !isFloat) {
    yaml.fail(found->second, "only an actuator of type 7 (float) can be interpolated: use step");
  }
  actuator.interpolates = given == "linear";
}

/// Empty where it cannot be read.
std::string readName(const YamlFile& yaml, const Fields& fields, const YAML::Node& owner,
                     NameTable& names, const char* noun) {
  std::string name;
  yaml.requiredField(fields, owner, "name", [&](const YAML::Node& node) {
    name = yaml.name(node, "name");
    names.take(name, yaml.at(node), noun);
  });
  return name;
}

constexpr const char* subDevice = "actuator or sensor";

}  // namespace

double readTimeConstant(const YamlFile& yaml, const YAML::Node& node) {
  const double seconds = yaml.number(node, "time_constant");
  if (seconds <= 0) {
    yaml.fail(node, "time_constant must be a number of seconds above 0");
  }
  return seconds;
}

double readApproachVelocity(const YamlFile& yaml, const YAML::Node& node) {
  const double velocity = yaml.number(node, "approach_velocity");
  if (velocity <= 0) {
    yaml.fail(node, "approach_velocity must be a number above 0, in units a second");
  }
  return velocity;
}

void readJoint(const YamlFile& yaml, const YAML::Node& node, MachineDraft& draft) {
  const Fields fields = yaml.fields(
      node, "a joint", withLimits({"name", "value", "time_constant", "approach_velocity"}));
  const std::string name = readName(yaml, fields, node, draft.joints, "joint");
  simulation::Sensor* const sensor = draft.sensor(name + "/Sensor");
  yaml.field(fields, "time_constant", [&](const YAML::Node& seconds) {
    const double lag = readTimeConstant(yaml, seconds);
    if (sensor != nullptr) {
      sensor->timeConstant = lag;
    }
  });
  const int actuator = draft.actuator(name);
  ActuatorFields ignored;
  ActuatorFields& given = actuator < 0 ? ignored : draft.fields(actuator);
  readLimits(yaml, fields, given);
  readValue(yaml, fields, hal::floatTypeCode, given);
  readApproach(yaml, fields, given);
  if (name.empty()) {
    return;
  }
  if (sensor == nullptr) {
    draft.failAsUnknown(yaml.at(fields.at("name")),
                        fmt::format("the URDF has no movable joint '{}'", name));
  }
  for (const auto& [key, field] : fields) {
    if (actuator < 0 && key != "name" && key != "time_constant") {
      yaml.report(field,
                  fmt::format("joint '{}' follows another; it has no {} of its own", name, key));
    }
  }
}

void readActuator(const YamlFile& yaml, const YAML::Node& node, MachineDraft& draft) {
  const Fields fields = yaml.fields(
      node, "an actuator",
      withLimits({"name", "type", "law", "interpolation", "value", "approach_velocity"}));
  simulation::Actuator actuator;
  actuator.name = readName(yaml, fields, node, draft.subDevices, subDevice);
  ActuatorFields given;
  given.location = yaml.at(node);
  const bool isTyped = yaml.field(fields, "type", [&](const YAML::Node& type) {
    actuator.typeCode = readTypeCode(yaml, type, 1, hal::floatTypeCode);
  });
  readLimits(yaml, fields, given);
  readApproach(yaml, fields, given);
  if (isTyped) {
    yaml.attempt([&] { readInterpolation(yaml, fields, actuator); });
    readValue(yaml, fields, actuator.typeCode, given);
  }
  // An unknown key may be this one, misspelt; without a type, nothing says what a value is.
  if (!given.value && (!isTyped || fields.size() != node.size())) {
    given.value = GivenNumber{given.location};
  }
  draft.addActuator(std::move(actuator), std::move(given));
}

void readSensor(const YamlFile& yaml, const YAML::Node& node, MachineDraft& draft) {
  const Fields fields =
      yaml.fields(node, "a sensor", {"name", "actuator", "multiplier", "offset", "time_constant"});
  simulation::Sensor sensor;
  sensor.name = readName(yaml, fields, node, draft.subDevices, subDevice);
  yaml.requiredField(fields, node, "actuator", [&](const YAML::Node& followed) {
    sensor.actuator = draft.actuator(yaml.name(followed, "actuator"));
    if (sensor.actuator < 0) {
      draft.failAsUnknown(yaml.at(followed),
                          fmt::format("the machine has no actuator '{}'", followed.Scalar()));
    }
  });
  sensor.timeConstant = draft.timeConstant;
  yaml.field(fields, "multiplier", [&](const YAML::Node& multiplier) {
    sensor.multiplier = yaml.singleNumber(multiplier, "multiplier");
  });
  yaml.field(fields, "offset", [&](const YAML::Node& offset) {
    sensor.offset = yaml.singleNumber(offset, "offset");
  });
  yaml.field(fields, "time_constant", [&](const YAML::Node& seconds) {
    sensor.timeConstant = readTimeConstant(yaml, seconds);
  });
  draft.addSensor(std::move(sensor), yaml.at(node));
}

}  // namespace host
