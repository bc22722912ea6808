#include "host/input/urdf.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <pugixml.hpp>
#include <set>
#include <utility>

#include "host/base/textfile.h"

namespace host {
namespace {

constexpr int maxDepth = 100;
/// From one mimic joint to the next.
constexpr std::size_t longestMimicry = 100;

struct DepthLimit : pugi::xml_tree_walker {
  pugi::xml_node tooDeep;

  bool for_each(pugi::xml_node& node) override {
    if (depth() >= maxDepth) {
      tooDeep = node;
    }
    return !tooDeep;
  }
};

/// What a mimic joint follows: `multiplier` * master + `offset`.
struct Mimicry {
  pugi::xml_node joint;
  std::string master;
  double multiplier = 1.0;
  double offset = 0.0;
};

class UrdfReader {
 public:
  UrdfReader(const std::string& path, const std::string& text) : path_(path), text_(text) {}

  MachineModel read() {
    const pugi::xml_node root = parse();
    robot_.paths = {path_};
    robot_.name = root.attribute("name").value();
    for (const pugi::xml_node joint : root.children("joint")) {
      readJoint(joint);
    }
    if (robot_.description.actuators.empty()) {
      fail(root, "the robot has no movable joint");
    }
    for (const pugi::xml_node joint : root.children("joint")) {
      const auto mimicry = mimicries_.find(joint.attribute("name").value());
      if (mimicry != mimicries_.end()) {
        addMimicSensor(mimicry->first, mimicry->second);
      }
    }
    return std::move(robot_);
  }

 private:
  pugi::xml_node parse() {
    const pugi::xml_parse_result result =
        document_.load_buffer(text_.data(), text_.size(), pugi::parse_default, pugi::encoding_utf8);
    if (!result) {
      fail(static_cast<std::size_t>(result.offset),
           fmt::format("not well-formed XML: {}", result.description()));
    }
    DepthLimit limit;
    document_.traverse(limit);
    if (limit.tooDeep) {
      fail(limit.tooDeep, fmt::format("elements lie more than {} deep", maxDepth));
    }
    const pugi::xml_node root = document_.document_element();
    for (const pugi::xml_node node : document_.children()) {
      if (node.type() == pugi::node_element && node != root) {
        fail(node, "a second root element");
      }
    }
    if (std::strcmp(root.name(), "robot") != 0) {
      fail(root, fmt::format("the root element is <{}> instead of <robot>", root.name()));
    }
    return root;
  }

  [[noreturn]] void fail(std::size_t offset, const std::string& what) const {
    throw UserError(path_, locationAt(text_, offset), what);
  }

  /// Points at the "<" of an element.
  [[noreturn]] void fail(const pugi::xml_node& node, const std::string& what) const {
    fail(static_cast<std::size_t>(std::max<std::ptrdiff_t>(node.offset_debug() - 1, 0)), what);
  }

  void readJoint(const pugi::xml_node& joint) {
    const std::string name = attribute(joint, "name").value();
    const std::string type = attribute(joint, "type").value();
    if (name.empty()) {
      fail(joint, "a joint needs a name");
    }
    takeName(joint, name);
    if (type == "fixed" || type == "floating" || type == "planar") {
      robot_.uncommandedJoints.insert(name);
    } else if (type == "revolute" || type == "prismatic" || type == "continuous") {
      readMovableJoint(joint, name, type == "continuous");
    } else {
      fail(joint, fmt::format("joint '{}' has the type '{}'; use revolute, continuous, prismatic, "
                              "fixed, floating or planar",
                              name, type));
    }
  }

  void takeName(const pugi::xml_node& joint, const std::string& name) {
    if (!names_.insert(name).second) {
      fail(joint, fmt::format("a second joint or sensor is named '{}' (joint J has the sensor "
                              "J/Sensor)",
                              name));
    }
  }

  void readMovableJoint(const pugi::xml_node& joint, const std::string& name, bool continuous) {
    const pugi::xml_node mimic = onlyChild(joint, "mimic");
    if (mimic) {
      robot_.uncommandedJoints.insert(name);
      mimicries_.emplace(
          name, Mimicry{joint, attribute(mimic, "joint").value(), number(mimic, "multiplier", 1.0),
                        number(mimic, "offset", 0.0)});
      takeAttributes(joint, simulation::MachineDescription::attributesPerSensor);
      return;
    }
    simulation::Actuator actuator;
    actuator.name = name;
    readLimits(joint, continuous, actuator);
    actuator.value = static_cast<float>(std::clamp(0.0, actuator.minimum, actuator.maximum));
    takeAttributes(joint, simulation::MachineDescription::attributesPerActuator +
                              simulation::MachineDescription::attributesPerSensor);
    const int index = static_cast<int>(robot_.description.actuators.size());
    robot_.description.actuators.push_back(std::move(actuator));
    actuators_.emplace(name, index);
    addSensor(joint, name, index, 1.0, 0.0);
  }

  void readLimits(const pugi::xml_node& joint, bool continuous, simulation::Actuator& actuator) {
    const pugi::xml_node limit = onlyChild(joint, "limit");
    if (!limit) {
      if (!continuous) {
        fail(joint, fmt::format("joint '{}' needs a <limit> with lower, upper and velocity",
                                actuator.name));
      }
      return;
    }
    if (!continuous) {
      for (const char* needed : {"lower", "upper", "velocity"}) {
        if (!limit.attribute(needed)) {
          fail(limit, fmt::format("the limit of joint '{}' needs the attribute {}", actuator.name,
                                  needed));
        }
      }
      actuator.minimum = static_cast<float>(number(limit, "lower", 0.0));
      actuator.maximum = static_cast<float>(number(limit, "upper", 0.0));
      if (actuator.minimum > actuator.maximum) {
        fail(limit,
             fmt::format("joint '{}' has its lower limit above its upper limit", actuator.name));
      }
    }
    if (limit.attribute("velocity")) {
      actuator.maximumVelocity = static_cast<float>(number(limit, "velocity", 0.0));
      if (actuator.maximumVelocity < 0) {
        fail(limit, fmt::format("joint '{}' has a negative velocity limit", actuator.name));
      }
    }
  }

  /// The parser takes the first of attributes or elements that stand twice.
  pugi::xml_attribute attribute(const pugi::xml_node& element, const char* name) const {
    pugi::xml_attribute found;
    for (const pugi::xml_attribute candidate : element.attributes()) {
      if (std::strcmp(candidate.name(), name) == 0) {
        if (found) {
          fail(element, fmt::format("duplicate attribute {}", name));
        }
        found = candidate;
      }
    }
    return found;
  }

  pugi::xml_node onlyChild(const pugi::xml_node& element, const char* name) const {
    const pugi::xml_node child = element.child(name);
    if (const pugi::xml_node second = child.next_sibling(name)) {
      fail(second, fmt::format("a second <{}>", name));
    }
    return child;
  }

  double number(const pugi::xml_node& element, const char* name, double otherwise) const {
    const pugi::xml_attribute found = attribute(element, name);
    if (!found) {
      return otherwise;
    }
    std::string text = found.value();
    text.erase(0, text.find_first_not_of(" \t\r\n"));
    text.erase(text.find_last_not_of(" \t\r\n") + 1);
    double value = 0.0;
    if (!parseNumber(text, value) || !std::isfinite(static_cast<float>(value))) {
      fail(element, fmt::format("{}=\"{}\" is not a finite decimal number of single precision",
                                name, found.value()));
    }
    return value;
  }

  void takeAttributes(const pugi::xml_node& joint, int count) {
    attributeCount_ += count;
    if (attributeCount_ > simulation::maxAttributes) {
      fail(joint, fmt::format("the joints up to here need {} attributes; a device pool holds {}",
                              attributeCount_, simulation::maxAttributes));
    }
  }

  void addSensor(const pugi::xml_node& joint, const std::string& jointName, int actuator,
                 double multiplier, double offset) {
    simulation::Sensor sensor;
    sensor.name = jointName + "/Sensor";
    sensor.actuator = actuator;
    sensor.multiplier = static_cast<float>(multiplier);
    sensor.offset = static_cast<float>(offset);
    takeName(joint, sensor.name);
    robot_.description.sensors.push_back(std::move(sensor));
  }

  /// Follows mimicry of mimicry down to an actuator.
  void addMimicSensor(const std::string& name, Mimicry mimicry) {
    for (std::size_t turn = 0; actuators_.count(mimicry.master) == 0; ++turn) {
      const auto next = mimicries_.find(mimicry.master);
      if (next == mimicries_.end()) {
        fail(mimicry.joint, fmt::format("joint '{}' mimics '{}', which is no movable joint", name,
                                        mimicry.master));
      }
      if (turn == longestMimicry) {
        fail(mimicry.joint, fmt::format("joint '{}' mimics itself, or another by way of more "
                                        "than {}",
                                        name, longestMimicry));
      }
      mimicry.offset += mimicry.multiplier * next->second.offset;
      mimicry.multiplier *= next->second.multiplier;
      mimicry.master = next->second.master;
    }
    if (!std::isfinite(static_cast<float>(mimicry.multiplier)) ||
        !std::isfinite(static_cast<float>(mimicry.offset))) {
      fail(mimicry.joint, fmt::format("joint '{}' mimics beyond single precision", name));
    }
    addSensor(mimicry.joint, name, actuators_.at(mimicry.master), mimicry.multiplier,
              mimicry.offset);
  }

  const std::string& path_;
  const std::string& text_;
  pugi::xml_document document_;
  MachineModel robot_;
  /// Of joints and sensors.
  std::set<std::string> names_;
  std::map<std::string, int> actuators_;
  std::map<std::string, Mimicry> mimicries_;
  int attributeCount_ = 0;
};

}  // namespace

MachineModel readUrdf(const std::string& path, const std::string& text) {
  return UrdfReader(path, text).read();
}

}  // namespace host
