#include "host/input/urdf.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <pugixml.hpp>
#include <set>
#include <utility>

#include "host/base/errorcollector.h"
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
    errors_.attempt([this] { readRobot(parse()); });
    errors_.throwIfAny();
    return std::move(robot_);
  }

 private:
  void readRobot(const pugi::xml_node& root) {
    robot_.paths = {path_};
    robot_.name = root.attribute("name").value();
    bool sound = true;
    for (const pugi::xml_node joint : root.children("joint")) {
      sound = errors_.attempt([&] { readJoint(joint); }) && sound;
    }
    if (sound && robot_.description.actuators.empty()) {
      fail(root, "the robot has no movable joint");
    }
    for (const pugi::xml_node joint : root.children("joint")) {
      const auto mimicry = mimicries_.find(joint.attribute("name").value());
      if (mimicry != mimicries_.end() && mimicry->second.joint == joint) {
        errors_.attempt([&] { addMimicSensor(mimicry->first, mimicry->second); });
      }
    }
  }

  pugi::xml_node parse() {
    const pugi::xml_parse_result result =
        document_.load_buffer(text_.data(), text_.size(), pugi::parse_default, pugi::encoding_utf8);
    if (!result) {
      throw UserError(path_, locationAt(text_, static_cast<std::size_t>(result.offset)),
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

  /// Points at the "<" of an element.
  [[nodiscard]] UserError error(const pugi::xml_node& node, const std::string& what) const {
    const auto offset = std::max<std::ptrdiff_t>(node.offset_debug() - 1, 0);
    return {path_, locationAt(text_, static_cast<std::size_t>(offset)), what};
  }

  [[noreturn]] void fail(const pugi::xml_node& node, const std::string& what) const {
    throw error(node, what);
  }

  void report(const pugi::xml_node& node, const std::string& what) {
    errors_.add(error(node, what));
  }

  void readJoint(const pugi::xml_node& joint) {
    std::string name;
    const bool isNamed = errors_.attempt([&] {
      name = attribute(joint, "name").value();
      if (name.empty()) {
        fail(joint, "a joint needs a name");
      }
    });
    if (!isNamed) {
      namesAreComplete_ = false;
      throw AlreadyReported();
    }
    takeName(joint, name);
    const std::string type = attribute(joint, "type").value();
    if (type == "fixed" || type == "floating" || type == "planar") {
      robot_.uncommandedJoints.insert(name);
      return;
    }
    movable_.insert(name);
    if (type != "revolute" && type != "prismatic" && type != "continuous") {
      fail(joint, fmt::format("joint '{}' has the type '{}'; use revolute, continuous, prismatic, "
                              "fixed, floating or planar",
                              name, type));
    }
    readMovableJoint(joint, name, type == "continuous");
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
      Mimicry mimicry;
      mimicry.joint = joint;
      mimicry.master = attribute(mimic, "joint").value();
      readNumber(mimic, "multiplier", mimicry.multiplier);
      readNumber(mimic, "offset", mimicry.offset);
      mimicries_.emplace(name, std::move(mimicry));
      takeAttributes(joint, simulation::MachineDescription::attributesPerSensor);
      return;
    }
    simulation::Actuator actuator;
    actuator.name = name;
    if (!errors_.attempt([&] { readLimits(joint, continuous, actuator); })) {
      throw AlreadyReported();
    }
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
          report(limit, fmt::format("the limit of joint '{}' needs the attribute {}", actuator.name,
                                    needed));
        }
      }
      readSingle(limit, "lower", actuator.minimum);
      readSingle(limit, "upper", actuator.maximum);
      if (actuator.minimum > actuator.maximum) {
        report(limit,
               fmt::format("joint '{}' has its lower limit above its upper limit", actuator.name));
      }
    }
    readSingle(limit, "velocity", actuator.maximumVelocity);
    if (actuator.maximumVelocity < 0) {
      report(limit, fmt::format("joint '{}' has a negative velocity limit", actuator.name));
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

  /// Into `number`, unless the attribute is absent or broken.
  void readNumber(const pugi::xml_node& element, const char* name, double& number) {
    errors_.attempt([&] {
      const pugi::xml_attribute found = attribute(element, name);
      if (!found) {
        return;
      }
      std::string text = found.value();
      text.erase(0, text.find_first_not_of(" \t\r\n"));
      text.erase(text.find_last_not_of(" \t\r\n") + 1);
      double value = 0.0;
      if (!parseNumber(text, value) || !std::isfinite(static_cast<float>(value))) {
        fail(element, fmt::format("{}=\"{}\" is not a finite decimal number of single precision",
                                  name, found.value()));
      }
      number = value;
    });
  }

  /// The same, rounded to single precision.
  template <typename Number>
  void readSingle(const pugi::xml_node& element, const char* name, Number& number) {
    double exact = number;
    readNumber(element, name, exact);
    number = static_cast<float>(exact);
  }

  void takeAttributes(const pugi::xml_node& joint, int count) {
    attributeCount_ += count;
    if (attributeCount_ > simulation::maxAttributes) {
      errors_.stop(error(
          joint, fmt::format("the joints up to here need {} attributes; a device pool holds {}",
                             attributeCount_, simulation::maxAttributes)));
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
        if (!namesAreComplete_ || movable_.count(mimicry.master) != 0) {
          throw AlreadyReported();  // its master is broken
        }
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
  ErrorCollector errors_;
  MachineModel robot_;
  /// Of joints and sensors.
  std::set<std::string> names_;
  /// Joints that move, or may, were they not broken.
  std::set<std::string> movable_;
  bool namesAreComplete_ = true;
  std::map<std::string, int> actuators_;
  std::map<std::string, Mimicry> mimicries_;
  int attributeCount_ = 0;
};

}  // namespace

MachineModel readUrdf(const std::string& path, const std::string& text) {
  return UrdfReader(path, text).read();
}

}  // namespace host
