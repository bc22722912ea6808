#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace bridge {

/// The topics that a machine has.
constexpr std::array<const char*, 5> kinds = {"joint_states", "commanded_joint_states", "events",
                                              "robot_description", "joint_trajectory"};

/// What DDS has before the name of a topic of ROS 2.
constexpr std::string_view topicPrefix = "rt/";

/// What `torvex bridge` hands over.
struct Configuration {
  /// Names of machines, or paths of their sockets.
  std::vector<std::string> machines;
  std::uint32_t domain = 0;
  /// The network interface; no packet leaves by another one.
  std::string interface;
  /// How often states are told, a second; 0: in each cycle.
  double rateHz = 0.0;
  /// How far ahead a trajectory may begin.
  double horizonSeconds = 0.0;
  /// Whether states may be lost on the way rather than be late.
  bool statesAreSensorData = false;
  /// Other names of topics: "KIND=TOPIC", of which the last one of a kind counts.
  std::vector<std::string> topics;
};

/// Of the one argument that the tool gives. Throws `std::runtime_error` for anything else, and when
/// two topics would have one name.
Configuration readConfiguration(const std::string& argument);

/// The name of a machine as its topics have it: what may not stand there becomes "_".
std::string nameInTopics(const std::string& machine);

/// The topic that a machine uses for one of `kinds`, as DDS has it; empty where it is left out.
std::string topicOf(const Configuration& configuration, const std::string& machine,
                    const std::string& kind);

}  // namespace bridge
