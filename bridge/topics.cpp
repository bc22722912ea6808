#include "bridge/topics.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "bridge/output.h"
#include "messages.h"

namespace bridge {

Topics::Topics(const Network& network, const Configuration& configuration,
               const std::string& machine)
    : name(nameInTopics(machine)) {
  const Delivery ofStates =
      configuration.statesAreSensorData ? Delivery::sensorData : Delivery::standard;
  const auto open = [&](std::optional<Writer>& writer, const char* kind,
                        const dds_topic_descriptor_t& type, Delivery delivery) {
    if (const std::string topic = topicOf(configuration, machine, kind); !topic.empty()) {
      writer.emplace(network, topic, type, delivery);
    }
  };
  open(measured, "joint_states", sensor_msgs_msg_dds__JointState__desc, ofStates);
  open(commanded, "commanded_joint_states", sensor_msgs_msg_dds__JointState__desc, ofStates);
  open(events, "events", std_msgs_msg_dds__String__desc, Delivery::standard);
  open(description, "robot_description", std_msgs_msg_dds__String__desc, Delivery::latched);
  if (const std::string topic = topicOf(configuration, machine, "joint_trajectory");
      !topic.empty()) {
    trajectories.emplace(network, topic, trajectory_msgs_msg_dds__JointTrajectory__desc);
  }
}

bool Topics::tell(const host::Json& event) {
  if (!events) {
    return true;
  }
  constexpr int turns = 20;
  std::string line = host::printed(event, -1);
  const std_msgs_msg_dds__String_ message{line.data()};
  try {
    for (int turn = 0; turn < turns; ++turn) {
      if (events->write(&message)) {
        return true;
      }
    }
  } catch (const std::runtime_error& error) {
    complain(fmt::format("warning: {}: {}", name, error.what()), About::events);
  }
  return false;
}

void Topics::tellRefusal(const std::string& what, const std::string& why) {
  complain(fmt::format("error: {}: not taken: {}: {}", name, what, why), About::refusals);
  tell({{"kind", "not_taken"}, {"trajectory", what}, {"message", why}});
}

}  // namespace bridge
