#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/base/attributekeys.h"
#include "messages.h"
#include "simulation/observer.h"

namespace bridge {

/// The positions of joints as one message, which refers to the object.
class JointStates {
 public:
  struct Joint {
    std::string name;
    /// Of the attribute that holds its position.
    std::string key;
  };

  /// Throws `simulation::Error` for a key that the machine does not have.
  JointStates(const simulation::Observer& observer, const host::AttributeKeys& known,
              std::vector<Joint> joints);

  JointStates(const JointStates&) = delete;
  JointStates& operator=(const JointStates&) = delete;

  /// As a cycle left them, with its wall time as the stamp.
  const sensor_msgs_msg_dds__JointState_& at(const simulation::PoolCycle& cycle);

 private:
  struct Source {
    std::size_t index;
    bool isInteger;
  };

  std::vector<Joint> joints_;
  std::vector<Source> sources_;
  std::vector<char*> names_;
  std::vector<double> positions_;
  std::string frame_;
  sensor_msgs_msg_dds__JointState_ message_{};
};

}  // namespace bridge
