#include "bridge/jointstates.h"

#include <utility>

#include "host/base/clocks.h"
#include "host/base/values.h"

namespace bridge {

JointStates::JointStates(const simulation::Observer& observer, const host::AttributeKeys& known,
                         std::vector<Joint> joints)
    : joints_(std::move(joints)), positions_(joints_.size()) {
  for (Joint& joint : joints_) {
    const int index = known.find({joint.key}).front();
    const bool isInteger = host::valueType(observer.typeCode(index)) == host::ValueType::integer;
    sources_.push_back({static_cast<std::size_t>(index), isInteger});
    names_.push_back(joint.name.data());
  }
  const auto count = static_cast<std::uint32_t>(joints_.size());
  message_.header_.frame_id_ = frame_.data();
  message_.name_ = {count, count, names_.data(), false};
  message_.position_ = {count, count, positions_.data(), false};
}

const sensor_msgs_msg_dds__JointState_& JointStates::at(const simulation::PoolCycle& cycle) {
  message_.header_.stamp_ = {static_cast<std::int32_t>(cycle.wallTimeNs / host::nsPerSecond),
                             static_cast<std::uint32_t>(cycle.wallTimeNs % host::nsPerSecond)};
  for (std::size_t i = 0; i < sources_.size(); ++i) {
    const hal::AttrGeneric value = cycle.values.at(sources_[i].index);
    positions_[i] = sources_[i].isInteger ? static_cast<double>(value.asInt)
                                          : static_cast<double>(value.asFloat);
  }
  return message_;
}

}  // namespace bridge
