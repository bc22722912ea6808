#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace host {

/// Positions of joints as the message sensor_msgs/msg/JointState, in the CDR encoding of ROS 2.
struct JointState {
  std::uint64_t timeNs = 0;
  std::vector<std::string> names;
  std::vector<double> positions;

  static constexpr char schemaName[] = "sensor_msgs/msg/JointState";
  /// The definition of the message and of those that it contains.
  static const char* schema();
};

/// Makes messages of the same joints, at a time each.
class JointStateEncoder {
 public:
  explicit JointStateEncoder(const std::vector<std::string>& names);

  /// As many positions as names. Valid until the next call.
  std::string_view encoded(std::uint64_t timeNs, const std::vector<double>& positions);

 private:
  /// With room for the time, up to the positions.
  std::string begin_;
  std::string message_;
};

/// Throws `RecordingFault` when it is no such message.
JointState decodedJointState(std::string_view message);

}  // namespace host
