#include "host/input/pointreader.h"

#include <fmt/format.h>

#include "host/input/typedvalue.h"

namespace host {

PointReader::PointReader(const YamlFile& yaml, const MachineFile& machine)
    : yaml_(yaml), machine_(machine), actuators_(actuatorIndexes(machine)) {}

int PointReader::actuatorNamed(const std::string& name) const {
  const auto found = actuators_.find(name);
  return found == actuators_.end() ? -1 : found->second;
}

int PointReader::actuatorWithKey(const std::string& key) const {
  static const std::string prefix = "Device/SubDeviceList/";
  static const std::string suffix = "/Value";
  const std::string bare = key.rfind(prefix, 0) == 0 ? key.substr(prefix.size()) : key;
  const bool isValue = bare.size() > suffix.size() &&
                       bare.compare(bare.size() - suffix.size(), suffix.size(), suffix) == 0;
  return isValue ? actuatorNamed(bare.substr(0, bare.size() - suffix.size())) : -1;
}

hal::AttrGeneric PointReader::value(const YAML::Node& node, int actuator, const char* what) const {
  const simulation::Actuator& commanded = machine_.actuator(actuator);
  if (commanded.typeCode == hal::floatTypeCode) {
    return hal::AttrGeneric(yaml_.singleNumber(node, what));
  }
  hal::AttrGeneric record;
  record.asInt = readInteger(yaml_, node, what);
  return record;
}

void PointReader::addTime(const YAML::Node& node, const char* what, Motion& motion) const {
  const std::uint32_t timeMs = yaml_.milliseconds(node, what);
  if (std::int64_t{motion.fromMs} + timeMs > YamlFile::longestMs) {
    yaml_.fail(node, fmt::format("{} lies beyond {} seconds after the start", what,
                                 YamlFile::longestMs / 1000));
  }
  if (!motion.times.empty() && timeMs == motion.times.back()) {
    yaml_.fail(node, fmt::format("two points fall on the millisecond {}", timeMs));
  }
  if (!motion.times.empty() && timeMs < motion.times.back()) {
    yaml_.fail(node,
               fmt::format("{} goes back from {} ms to {} ms", what, motion.times.back(), timeMs));
  }
  motion.times.push_back(timeMs);
}

}  // namespace host
