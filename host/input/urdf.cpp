#include "host/input/urdf.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <pugixml.hpp>
#include <set>
#include <string_view>
#include <utility>

#include "host/base/errorcollector.h"
#include "host/base/textfile.h"

namespace host {
namespace {

constexpr int maxDepth = 100;
/// From one mimic joint to the next.
constexpr std::size_t longestMimicry = 100;

/// Looks for what ends the reading of all.
struct Survey : pugi::xml_tree_walker {
  pugi::xml_node tooDeep;
  pugi::xml_node macro;

  bool for_each(pugi::xml_node& node) override {
    if (depth() >= maxDepth) {
      tooDeep = node;
    }
    if (!macro && isMacro(node)) {
      macro = node;
    }
    return !tooDeep;
  }

  /// An element of the macro language, or a joint with an expression of it.
  static bool isMacro(const pugi::xml_node& node) {
    constexpr std::string_view prefix = "xacro:";
    if (std::string_view(node.name()).substr(0, prefix.size()) == prefix) {
      return true;
    }
    const bool isOfJoint =
        std::strcmp(node.name(), "joint") == 0 || std::strcmp(node.parent().name(), "joint") == 0;
    const auto attributes = node.attributes();
    return isOfJoint &&
           std::any_of(attributes.begin(), attributes.end(), [](const pugi::xml_attribute& each) {
             return std::strstr(each.value(), "${") != nullptr ||
                    std::strstr(each.value(), "$(") != nullptr;
           });
  }
};

/// What a mimic joint follows: `multiplier` * master + `offset`.
struct Mimicry {
  pugi::xml_node joint;
  std::string master;
  double multiplier = 1.0;
  double offset = 0.0;
  /// The joint with its own limits.
  simulation::Actuator limits;
};

std::string trimmed(std::string text) {
  text.erase(0, text.find_first_not_of(" \t\r\n"));
  text.erase(text.find_last_not_of(" \t\r\n") + 1);
  return text;
}

/// In the spellings that readers of numbers know.
bool isInfinity(std::string word) {
  std::transform(word.begin(), word.end(), word.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return word == "inf" || word == "+inf" || word == "infinity" || word == "+infinity";
}

class UrdfReader {
 public:
  UrdfReader(const std::string& path, const std::string& text, MachineDraft& draft)
      : path_(path), text_(text), lines_(text), draft_(draft), errors_(draft.errors()) {}

  void read() {
    const pugi::xml_node root = parse();
    draft_.model.paths = {path_};
    draft_.model.name = root.attribute("name").value();
    draft_.model.urdf = std::make_shared<const std::string>(text_);
    bool sound = true;
    for (const pugi::xml_node joint : root.children("joint")) {
      sound = errors_.attempt([&] { readJoint(joint); }) && sound;
    }
    if (sound && draft_.model.description.actuators.empty()) {
      fail(root, "the robot has no movable joint");
    }
    for (const pugi::xml_node joint : root.children("joint")) {
      const auto mimicry = mimicries_.find(joint.attribute("name").value());
      if (mimicry != mimicries_.end() && mimicry->second.joint == joint) {
        errors_.attempt([&] { addMimicSensor(mimicry->first, mimicry->second); });
      }
    }
  }

 private:
  pugi::xml_node parse() {
    const pugi::xml_parse_result result =
        document_.load_buffer(text_.data(), text_.size(), pugi::parse_default, pugi::encoding_utf8);
    if (!result) {
      throw UserError(path_, lines_.at(static_cast<std::size_t>(result.offset)),
                      fmt::format("not well-formed XML: {}", result.description()));
    }
    Survey survey;
    document_.traverse(survey);
    if (survey.tooDeep) {
      fail(survey.tooDeep, fmt::format("elements are nested more than {} deep", maxDepth));
    }
    if (survey.macro) {
      fail(survey.macro,
           "the file is still a macro template (xacro); expand it first: "
           "xacro FILE.xacro > FILE.urdf");
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

  /// The "<" of an element.
  [[nodiscard]] FileLocation at(const pugi::xml_node& node) const {
    const auto offset = std::max<std::ptrdiff_t>(node.offset_debug() - 1, 0);
    return {path_, lines_.at(static_cast<std::size_t>(offset))};
  }

  [[noreturn]] void fail(const pugi::xml_node& node, const std::string& what) const {
    throw UserError(at(node), what);
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
      draft_.namesAreComplete = false;
      throw AlreadyReported();
    }
    joints_.take(name, at(joint), "joint");
    const std::string type = attribute(joint, "type").value();
    if (type == "fixed" || type == "floating" || type == "planar") {
      draft_.model.uncommandedJoints.insert(name);
      return;
    }
    movable_.insert(name);
    if (type != "revolute" && type != "prismatic" && type != "continuous") {
      fail(joint, fmt::format("joint '{}' has the type '{}'; use revolute, continuous, prismatic, "
                              "fixed, floating or planar",
                              name, type));
    }
    readMovableJoint(joint, name, type);
  }

  void readMovableJoint(const pugi::xml_node& joint, const std::string& name,
                        const std::string& type) {
    const bool continuous = type == "continuous";
    if (const pugi::xml_node mimic = onlyChild(joint, "mimic")) {
      draft_.model.uncommandedJoints.insert(name);
      readFollower(joint, mimic, name, continuous);
      return;
    }
    simulation::Actuator actuator;
    actuator.name = name;
    ActuatorFields fields;
    fields.location = at(joint);
    fields.usualApproachVelocity = type == "prismatic" ? 0.25 : 1.0;
    readLimits(joint, name, continuous, fields);
    draft_.subDevices.take(name, fields.location, "actuator or sensor");
    draft_.addActuator(std::move(actuator), std::move(fields));
    draft_.model.jointTypes[draft_.actuator(name)] = type;
    addSensor(joint, name, draft_.actuator(name), 1.0, 0.0);
  }

  /// Its limits are checked as those of an actuator, where it has any.
  void readFollower(const pugi::xml_node& joint, const pugi::xml_node& mimic,
                    const std::string& name, bool continuous) {
    Mimicry mimicry;
    mimicry.joint = joint;
    mimicry.master = attribute(mimic, "joint").value();
    readNumber(mimic, "multiplier", mimicry.multiplier);
    readNumber(mimic, "offset", mimicry.offset);
    mimicry.limits.name = name;
    ActuatorFields fields;
    fields.location = at(joint);
    readLimits(joint, name, continuous, fields);
    fields.lacking.reset();
    settle(fields, mimicry.limits, errors_);
    mimicries_.emplace(name, std::move(mimicry));
  }

  void readLimits(const pugi::xml_node& joint, const std::string& name, bool continuous,
                  ActuatorFields& fields) {
    const pugi::xml_node limit = onlyChild(joint, "limit");
    if (!limit && !continuous) {
      fields.lacking.emplace(
          at(joint), fmt::format("joint '{}' needs a <limit> with lower, upper and velocity, or "
                                 "minimum, maximum and maximum_velocity among the joints of a "
                                 "machine file",
                                 name));
    }
    if (!limit) {
      return;
    }
    if (!continuous && !limit.attribute("velocity")) {
      fields.lacking.emplace(at(limit),
                             fmt::format("the limit of joint '{}' needs the attribute velocity, or "
                                         "maximum_velocity among the joints of a machine file",
                                         name));
    }
    for (const LimitField& field : limitFields) {
      const bool isVelocity = field.given == &ActuatorFields::maximumVelocity;
      if (isVelocity ? limit.attribute(field.attribute) : !continuous) {
        GivenNumber& given = (fields.*field.given).emplace(GivenNumber{at(limit)});
        double number = 0.0;  // of a limit that is missing
        if (readNumber(limit, field.attribute, number, isVelocity)) {
          given.number = number;
        }
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

  /// Into `number`, unless the attribute is absent or broken; false when it is broken.
  bool readNumber(const pugi::xml_node& element, const char* name, double& number,
                  bool mayBeInfinite = false) {
    return errors_.attempt([&] {
      const pugi::xml_attribute found = attribute(element, name);
      if (!found) {
        return;
      }
      const std::string text = trimmed(found.value());
      double value = std::numeric_limits<double>::infinity();
      if (mayBeInfinite && isInfinity(text)) {
        number = value;
        return;
      }
      if (!parseNumber(text, value) || !std::isfinite(static_cast<float>(value))) {
        fail(element, fmt::format("{}=\"{}\" is not a finite decimal number of single precision",
                                  name, found.value()));
      }
      number = value;
    });
  }

  void addSensor(const pugi::xml_node& joint, const std::string& jointName, int actuator,
                 double multiplier, double offset) {
    simulation::Sensor sensor;
    sensor.name = jointName + "/Sensor";
    sensor.actuator = actuator;
    sensor.multiplier = static_cast<float>(multiplier);
    sensor.offset = static_cast<float>(offset);
    draft_.subDevices.take(sensor.name, at(joint), "actuator or sensor");
    draft_.addSensor(std::move(sensor), at(joint));
  }

  /// Follows mimicry of mimicry down to an actuator.
  void addMimicSensor(const std::string& name, Mimicry mimicry) {
    for (std::size_t turn = 0; draft_.actuator(mimicry.master) < 0; ++turn) {
      const auto next = mimicries_.find(mimicry.master);
      if (next == mimicries_.end()) {
        if (!draft_.namesAreComplete || movable_.count(mimicry.master) != 0) {
          throw AlreadyReported();  // its master is broken
        }
        fail(mimicry.joint, fmt::format("joint '{}' mimics '{}', which is not a movable joint",
                                        name, mimicry.master));
      }
      if (turn == longestMimicry) {
        fail(mimicry.joint,
             fmt::format("joint '{}' mimics itself, or mimics a joint through more than {} others",
                         name, longestMimicry));
      }
      mimicry.offset += mimicry.multiplier * next->second.offset;
      mimicry.multiplier *= next->second.multiplier;
      mimicry.master = next->second.master;
    }
    if (!std::isfinite(static_cast<float>(mimicry.multiplier)) ||
        !std::isfinite(static_cast<float>(mimicry.offset))) {
      fail(mimicry.joint,
           fmt::format("the multiplier or offset of joint '{}' is beyond single precision", name));
    }
    addSensor(mimicry.joint, name, draft_.actuator(mimicry.master), mimicry.multiplier,
              mimicry.offset);
    addFollower(mimicry);
  }

  /// A joint that could not move at all is no joint: such limits are none.
  void addFollower(const Mimicry& mimicry) {
    Follower follower;
    follower.name = mimicry.limits.name;
    follower.actuator = draft_.actuator(mimicry.master);
    follower.multiplier = mimicry.multiplier;
    follower.offset = mimicry.offset;
    if (mimicry.limits.minimum < mimicry.limits.maximum) {
      follower.minimum = mimicry.limits.minimum;
      follower.maximum = mimicry.limits.maximum;
    }
    if (mimicry.limits.maximumVelocity > 0) {
      follower.maximumVelocity = double{mimicry.limits.maximumVelocity};
    }
    draft_.model.followers.push_back(std::move(follower));
  }

  const std::string& path_;
  const std::string& text_;
  const LineIndex lines_;
  MachineDraft& draft_;
  ErrorCollector& errors_;
  pugi::xml_document document_;
  NameTable joints_;
  /// Joints that move, or may, were they not broken.
  std::set<std::string> movable_;
  std::map<std::string, Mimicry> mimicries_;
};

}  // namespace

MachineModel readUrdf(const std::string& path, const std::string& text) {
  ErrorCollector errors;
  MachineDraft draft(errors);
  errors.attempt([&] { addUrdf(path, text, draft); });
  return draft.finish();
}

void addUrdf(const std::string& path, const std::string& text, MachineDraft& draft) {
  UrdfReader(path, text, draft).read();
}

}  // namespace host
