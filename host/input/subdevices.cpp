#include "host/input/subdevices.h"

#include <fmt/format.h>

#include <set>
#include <utility>

#include "host/input/typedvalue.h"

namespace host {
namespace {

using Fields = Document::Fields;

/// The known keys of an entry with limits.
std::set<std::string> withLimits(std::set<std::string> keys) {
  for (const LimitField& field : limitFields) {
    keys.insert(field.key);
  }
  return keys;
}

/// Over what was given before.
void readLimits(const Document& document, const Fields& fields, ActuatorFields& given) {
  for (const LimitField& field : limitFields) {
    document.field(fields, field.key, [&](const Node& node) {
      std::optional<GivenNumber>& limit = given.*field.given;
      limit = GivenNumber{document.at(node)};
      // The device pool holds it in single precision; integers are compared with it as it stands.
      (void)document.singleNumber(node, field.key);
      limit->number = document.number(node, field.key);
    });
  }
}

void readValue(const Document& document, const Fields& fields, std::uint8_t typeCode,
               ActuatorFields& given) {
  document.field(fields, "value", [&](const Node& node) {
    given.value = GivenNumber{document.at(node)};
    given.value->number = typeCode == hal::floatTypeCode
                              ? double{document.singleNumber(node, "value")}
                              : static_cast<double>(readInteger(document, node, "value"));
  });
}

void readDynamics(const Document& document, const Fields& fields, ActuatorFields& given) {
  document.field(fields, "approach_velocity", [&](const Node& node) {
    given.approachVelocity = readApproachVelocity(document, node);
  });
  document.field(fields, "maximum_acceleration", [&](const Node& node) {
    given.maximumAcceleration = readMaximumAcceleration(document, node);
  });
}

/// "law" is the older word.
void readInterpolation(const Document& document, const Fields& fields,
                       simulation::Actuator& actuator) {
  const bool isFloat = actuator.typeCode == hal::floatTypeCode;
  actuator.interpolates = isFloat;
  const auto older = fields.find("law");
  const auto found = older == fields.end() ? fields.find("interpolation") : older;
  if (found == fields.end()) {
    return;
  }
  if (older != fields.end() && fields.count("interpolation") != 0) {
    document.fail(older->second, "law is the older word for interpolation; use one of the two");
  }
  const std::string given = document.text(found->second, found->first.c_str());
  if (given != "linear" && given != "step") {
    document.fail(found->second,
                  fmt::format("{} is '{}'; use linear or step", found->first, given.substr(0, 40)));
  }
  if (given == "linear" && !isFloat) {
    document.fail(found->second,
                  "only an actuator of type 7 (float) can be interpolated: use step");
  }
  actuator.interpolates = given == "linear";
}

/// Empty where it cannot be read.
std::string readName(const Document& document, const Fields& fields, const Node& owner,
                     NameTable& names, const char* noun) {
  std::string name;
  document.requiredField(fields, owner, "name", [&](const Node& node) {
    name = document.name(node, "name");
    names.take(name, document.at(node), noun);
  });
  return name;
}

constexpr const char* subDevice = "actuator or sensor";

}  // namespace

double readTimeConstant(const Document& document, const Node& node) {
  const double seconds = document.number(node, "time_constant");
  if (seconds <= 0) {
    document.fail(node, "time_constant must be a number of seconds above 0");
  }
  return seconds;
}

double readApproachVelocity(const Document& document, const Node& node) {
  const double velocity = document.number(node, "approach_velocity");
  if (velocity <= 0) {
    document.fail(node, "approach_velocity must be a number above 0, in units a second");
  }
  return velocity;
}

double readMaximumAcceleration(const Document& document, const Node& node) {
  const double acceleration = document.number(node, "maximum_acceleration");
  if (acceleration <= 0) {
    document.fail(node, "maximum_acceleration must be a number above 0, in units a second squared");
  }
  return acceleration;
}

void readJoint(const Document& document, const Node& node, MachineDraft& draft) {
  const Fields fields = document.fields(
      node, "a joint",
      withLimits({"name", "value", "time_constant", "approach_velocity", "maximum_acceleration"}));
  const std::string name = readName(document, fields, node, draft.joints, "joint");
  simulation::Sensor* const sensor = draft.sensor(name + "/Sensor");
  document.field(fields, "time_constant", [&](const Node& seconds) {
    const double lag = readTimeConstant(document, seconds);
    if (sensor != nullptr) {
      sensor->timeConstant = lag;
    }
  });
  const int actuator = draft.actuator(name);
  ActuatorFields ignored;
  ActuatorFields& given = actuator < 0 ? ignored : draft.fields(actuator);
  readLimits(document, fields, given);
  readValue(document, fields, hal::floatTypeCode, given);
  readDynamics(document, fields, given);
  if (name.empty()) {
    return;
  }
  if (sensor == nullptr) {
    draft.failAsUnknown(document.at(fields.at("name")),
                        fmt::format("the URDF has no movable joint '{}'", name));
  }
  for (const auto& [key, field] : fields) {
    if (actuator < 0 && key != "name" && key != "time_constant") {
      document.report(
          field, fmt::format("joint '{}' follows another; it has no {} of its own", name, key));
    }
  }
}

void readActuator(const Document& document, const Node& node, MachineDraft& draft) {
  const Fields fields = document.fields(node, "an actuator",
                                        withLimits({"name", "type", "law", "interpolation", "value",
                                                    "approach_velocity", "maximum_acceleration"}));
  simulation::Actuator actuator;
  actuator.name = readName(document, fields, node, draft.subDevices, subDevice);
  ActuatorFields given;
  given.location = document.at(node);
  const bool isTyped = document.field(fields, "type", [&](const Node& type) {
    actuator.typeCode = readTypeCode(document, type, 1, hal::floatTypeCode);
  });
  readLimits(document, fields, given);
  readDynamics(document, fields, given);
  if (isTyped) {
    document.attempt([&] { readInterpolation(document, fields, actuator); });
    readValue(document, fields, actuator.typeCode, given);
  }
  // An unknown key may be this one, misspelt; without a type, nothing says what a value is.
  if (!given.value && (!isTyped || fields.size() != node.size())) {
    given.value = GivenNumber{given.location};
  }
  draft.addActuator(std::move(actuator), std::move(given));
}

void readSensor(const Document& document, const Node& node, MachineDraft& draft) {
  const Fields fields = document.fields(
      node, "a sensor", {"name", "actuator", "multiplier", "offset", "time_constant"});
  simulation::Sensor sensor;
  sensor.name = readName(document, fields, node, draft.subDevices, subDevice);
  document.requiredField(fields, node, "actuator", [&](const Node& followed) {
    sensor.actuator = draft.actuator(document.name(followed, "actuator"));
    if (sensor.actuator < 0) {
      draft.failAsUnknown(document.at(followed),
                          fmt::format("the machine has no actuator '{}'", followed.scalar()));
    }
  });
  sensor.timeConstant = draft.timeConstant;
  document.field(fields, "multiplier", [&](const Node& multiplier) {
    sensor.multiplier = document.singleNumber(multiplier, "multiplier");
  });
  document.field(fields, "offset", [&](const Node& offset) {
    sensor.offset = document.singleNumber(offset, "offset");
  });
  document.field(fields, "time_constant", [&](const Node& seconds) {
    sensor.timeConstant = readTimeConstant(document, seconds);
  });
  draft.addSensor(std::move(sensor), document.at(node));
}

}  // namespace host
