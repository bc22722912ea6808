#include "host/input/jointtrajectory.h"

#include <fmt/format.h>
#include <yaml-cpp/depthguard.h>
#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

namespace host {
namespace {

/// The parser takes some fifty times as much memory.
constexpr std::size_t maxFileBytes = std::size_t{32} << 20;
/// Stamps further apart do not compare; leaves room for the lead.
constexpr double longestMotionSeconds = 1'000'000.0;

class TrajectoryReader {
 public:
  TrajectoryReader(const std::string& path, const Robot& robot) : robot_(robot) {
    motion_.path = path;
  }

  Motion read() {
    const YAML::Node root = load();
    const Fields fields = fieldsOf(root, "the trajectory", {"header", "joint_names", "points"});
    noteStamp(fields);
    readJointNames(required(fields, root, "joint_names"));
    const YAML::Node& points = required(fields, root, "points");
    if (!points.IsSequence() || points.size() == 0) {
      fail(points, "points: a list of at least one point is needed");
    }
    motion_.times.reserve(points.size());
    motion_.places.reserve(points.size());
    for (const YAML::Node& point : points) {
      readPoint(point);
    }
    for (const std::string& key : readOver_) {
      motion_.notes.push_back(
          fmt::format("{}: {} are read over; positions and times are used", motion_.path, key));
    }
    return std::move(motion_);
  }

 private:
  using Fields = std::map<std::string, YAML::Node>;

  YAML::Node load() {
    try {
      const std::vector<YAML::Node> documents = YAML::LoadAll(readFile(motion_.path, maxFileBytes));
      // A stream that was cut off a topic ends in a document without content.
      const bool single =
          !documents.empty() && std::all_of(documents.begin() + 1, documents.end(),
                                            [](const YAML::Node& node) { return node.IsNull(); });
      if (!single) {
        throw InputError(motion_.path, {1, 1},
                         documents.empty() ? "the file holds no trajectory"
                                           : "the file holds more than one document");
      }
      return documents.front();
    } catch (const YAML::DeepRecursion& error) {
      throw InputError(motion_.path, positionOf(error.mark),
                       "not readable as YAML: nested too deeply");
    } catch (const YAML::Exception& error) {
      throw InputError(motion_.path, positionOf(error.mark),
                       fmt::format("not readable as YAML: {}", error.msg));
    }
  }

  static Position positionOf(const YAML::Mark& mark) {
    return mark.is_null() ? Position{1, 1}
                          : Position{static_cast<std::size_t>(mark.line) + 1,
                                     static_cast<std::size_t>(mark.column) + 1};
  }

  [[noreturn]] void fail(const YAML::Node& node, const std::string& what) const {
    throw InputError(motion_.path, positionOf(node.Mark()), what);
  }

  /// The fields of a map: each key known and named once.
  Fields fieldsOf(const YAML::Node& node, const char* what,
                  const std::set<std::string>& known) const {
    if (!node.IsMap()) {
      fail(node, fmt::format("{} must be a map with {}", what, fmt::join(known, ", ")));
    }
    Fields fields;
    for (const auto& entry : node) {
      const std::string key = entry.first.IsScalar() ? entry.first.Scalar() : "";
      if (known.count(key) == 0) {
        fail(entry.first, fmt::format("unknown key '{}' in {}; known are {}", key, what,
                                      fmt::join(known, ", ")));
      }
      if (!fields.emplace(key, entry.second).second) {
        fail(entry.first, fmt::format("the key '{}' stands twice", key));
      }
    }
    return fields;
  }

  const YAML::Node& required(const Fields& fields, const YAML::Node& owner, const char* key) const {
    const auto found = fields.find(key);
    if (found == fields.end()) {
      fail(owner, fmt::format("the key '{}' is missing", key));
    }
    return found->second;
  }

  double number(const YAML::Node& node, const char* what) const {
    if (!node.IsScalar()) {
      fail(node, fmt::format("{} must be a number", what));
    }
    if (node.Tag() != "?") {
      fail(node, fmt::format("{} is text in quotes or behind a tag; write the plain number", what));
    }
    double value = 0.0;
    if (!parseNumber(node.Scalar(), value)) {
      fail(node, fmt::format("{} is '{}'; a finite decimal number is needed", what,
                             node.Scalar().substr(0, 40)));
    }
    return value;
  }

  void noteStamp(const Fields& fields) {
    const auto header = fields.find("header");
    if (header == fields.end() || header->second.IsNull()) {
      return;
    }
    const Fields parts = fieldsOf(header->second, "header", {"seq", "stamp", "frame_id"});
    const auto stamp = parts.find("stamp");
    if (stamp != parts.end() && seconds(stamp->second, "header.stamp") != 0) {
      motion_.notes.push_back(fmt::format(
          "{}: the header's stamp is read over; the motion starts with the run", motion_.path));
    }
  }

  void readJointNames(const YAML::Node& names) {
    if (!names.IsSequence() || names.size() == 0) {
      fail(names, "joint_names: a list of at least one joint is needed");
    }
    std::map<std::string, int> actuators;
    for (const simulation::Actuator& actuator : robot_.machine.actuators) {
      actuators.emplace(actuator.name, static_cast<int>(actuators.size()));
    }
    std::set<std::string> seen;
    for (const YAML::Node& node : names) {
      const std::string name = node.IsScalar() ? node.Scalar() : "";
      const auto actuator = actuators.find(name);
      if (actuator == actuators.end()) {
        fail(node, robot_.uncommandedJoints.count(name) != 0
                       ? fmt::format("joint '{}' has no actuator: it is fixed or follows "
                                     "another joint",
                                     name)
                       : fmt::format("robot '{}' has no joint '{}'", robot_.name, name));
      }
      if (!seen.insert(name).second) {
        fail(node, fmt::format("joint '{}' is named twice", name));
      }
      motion_.actuators.push_back(actuator->second);
    }
  }

  void readPoint(const YAML::Node& point) {
    static const std::set<std::string> known = {"positions", "velocities", "accelerations",
                                                "effort",    "efforts",    "time_from_start"};
    const Fields fields = fieldsOf(point, "a point", known);
    for (const auto& [key, node] : fields) {
      if (key != "positions" && key != "time_from_start" && node.size() != 0) {
        readOver_.insert(key);
      }
    }
    readTime(required(fields, point, "time_from_start"));
    motion_.places.push_back(positionOf(point.Mark()));
    const YAML::Node& positions = required(fields, point, "positions");
    if (!positions.IsSequence() || positions.size() != motion_.actuators.size()) {
      fail(positions,
           fmt::format("{} positions for {} joints", positions.size(), motion_.actuators.size()));
    }
    for (const YAML::Node& position : positions) {
      const auto value = static_cast<float>(number(position, "a position"));
      if (!std::isfinite(value)) {
        fail(position, "a position lies beyond single precision");
      }
      motion_.positions.push_back(value);
    }
  }

  void readTime(const YAML::Node& node) {
    const double time = seconds(node, "time_from_start");
    if (time < 0) {
      fail(node, "time_from_start is negative");
    }
    if (time > longestMotionSeconds) {
      fail(node, fmt::format("time_from_start lies beyond {} seconds", longestMotionSeconds));
    }
    const auto milliseconds = static_cast<std::uint32_t>(std::llround(time * 1000.0));
    if (!motion_.times.empty() && milliseconds == motion_.times.back()) {
      fail(node, fmt::format("two points fall on the millisecond {}", milliseconds));
    }
    if (!motion_.times.empty() && milliseconds < motion_.times.back()) {
      fail(node, fmt::format("time_from_start goes back from {} ms to {} ms", motion_.times.back(),
                             milliseconds));
    }
    motion_.times.push_back(milliseconds);
  }

  double seconds(const YAML::Node& node, const char* what) const {
    if (!node.IsMap()) {
      return number(node, what);
    }
    const Fields fields = fieldsOf(node, what, {"sec", "nanosec", "secs", "nsecs"});
    const bool oldSpelling = fields.count("secs") != 0 || fields.count("nsecs") != 0;
    if (oldSpelling && (fields.count("sec") != 0 || fields.count("nanosec") != 0)) {
      fail(node, fmt::format("{} mixes two spellings; use sec and nanosec", what));
    }
    return wholeNumber(required(fields, node, oldSpelling ? "secs" : "sec"), "seconds", -1e9, 1e9) +
           wholeNumber(required(fields, node, oldSpelling ? "nsecs" : "nanosec"), "nanoseconds", 0,
                       999'999'999) /
               1e9;
  }

  double wholeNumber(const YAML::Node& node, const char* what, double least, double most) const {
    const double value = number(node, what);
    if (value != std::floor(value) || value < least || value > most) {
      fail(node, fmt::format("{} must be a whole number from {} to {}", what, least, most));
    }
    return value;
  }

  const Robot& robot_;
  Motion motion_;
  std::set<std::string> readOver_;
};

}  // namespace

Motion readJointTrajectory(const std::string& path, const Robot& robot) {
  return TrajectoryReader(path, robot).read();
}

}  // namespace host
