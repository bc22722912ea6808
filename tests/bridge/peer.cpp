// A plain program of Cyclone DDS, as any node of ROS 2 would meet the bridge: it writes down what
// it hears of a machine, and sends what it reads. peer DOMAIN INTERFACE MACHINE
//
// In, a line each: SECONDS NANOSECONDS (the stamp) JOINT (TIME POSITION VELOCITY)...
// Out: "measured JOINT VALUE... at SECONDS", "commanded JOINT VALUE... at SECONDS", "event JSON",
// "description URDF", which is empty when there is none any more.

#include <dds/dds.h>
#include <poll.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "messages.h"

namespace {

using Trajectory = trajectory_msgs_msg_dds__JointTrajectory_;
using State = sensor_msgs_msg_dds__JointState_;

dds_entity_t topic(dds_entity_t participant, const std::string& name,
                   const dds_topic_descriptor_t& type) {
  return dds_create_topic(participant, &type, ("rt/" + name).c_str(), nullptr, nullptr);
}

/// What a node asks for that wants all, or that takes sensor data.
dds_qos_t* qosOf(bool isReliable) {
  dds_qos_t* const qos = dds_create_qos();
  dds_qset_reliability(qos, isReliable ? DDS_RELIABILITY_RELIABLE : DDS_RELIABILITY_BEST_EFFORT,
                       DDS_SECS(1));
  dds_qset_history(qos, DDS_HISTORY_KEEP_LAST, isReliable ? 10 : 5);
  return qos;
}

void keepOn() {}

/// Hands over the messages that came, and tells when what was written is no more.
template <typename Message, typename Use, typename Gone = void (*)()>
void take(dds_entity_t reader, const Use& use, const Gone& gone = keepOn) {
  void* message = nullptr;
  dds_sample_info_t info;
  while (dds_take(reader, &message, &info, 1, 1) > 0) {
    if (info.valid_data) {
      use(*static_cast<const Message*>(message));
    } else if (info.instance_state == DDS_IST_NOT_ALIVE_DISPOSED) {
      gone();
    }
    dds_return_loan(reader, &message, 1);
  }
}

void print(const char* what, const State& state) {
  std::cout << what;
  for (std::uint32_t i = 0; i < state.name_._length; ++i) {
    std::cout << ' ' << state.name_._buffer[i] << ' ' << state.position_._buffer[i];
  }
  const auto& stamp = state.header_.stamp_;
  std::cout << " at " << stamp.sec_ << '.' << std::setw(9) << std::setfill('0') << stamp.nanosec_
            << '\n'
            << std::flush;
}

void send(dds_entity_t writer, const std::string& line) {
  std::istringstream words(line);
  Trajectory message{};
  std::string joint;
  std::string frame;
  words >> message.header_.stamp_.sec_ >> message.header_.stamp_.nanosec_ >> joint;
  std::vector<double> numbers;
  for (std::string word; words >> word;) {
    numbers.push_back(std::stod(word));  // also "nan"
  }
  std::vector<trajectory_msgs_msg_dds__JointTrajectoryPoint_> points;
  for (std::size_t i = 0; i + 2 < numbers.size(); i += 3) {
    trajectory_msgs_msg_dds__JointTrajectoryPoint_ point{};
    point.positions_ = {1, 1, &numbers[i + 1], false};
    point.velocities_ = {1, 1, &numbers[i + 2], false};
    const double whole = std::floor(numbers[i]);
    point.time_from_start_ = {static_cast<std::int32_t>(whole),
                              static_cast<std::uint32_t>((numbers[i] - whole) * 1e9)};
    points.push_back(point);
  }
  char* names[] = {joint.data()};
  message.header_.frame_id_ = frame.data();
  message.joint_names_ = {1, 1, names, false};
  message.points_._length = message.points_._maximum = static_cast<std::uint32_t>(points.size());
  message.points_._buffer = points.data();
  dds_write(writer, &message);
}

/// The other ends of the machine's topics.
struct Ends {
  Ends(dds_entity_t participant, const std::string& machine) {
    const auto& state = sensor_msgs_msg_dds__JointState__desc;
    measured = dds_create_reader(participant, topic(participant, machine + "/joint_states", state),
                                 qosOf(true), nullptr);
    commanded = dds_create_reader(participant,
                                  topic(participant, machine + "/commanded_joint_states", state),
                                  qosOf(false), nullptr);
    events = dds_create_reader(
        participant, topic(participant, machine + "/events", std_msgs_msg_dds__String__desc),
        qosOf(true), nullptr);
    dds_qos_t* const latched = qosOf(true);
    dds_qset_durability(latched, DDS_DURABILITY_TRANSIENT_LOCAL);
    description = dds_create_reader(
        participant, topic(participant, "robot_description", std_msgs_msg_dds__String__desc),
        latched, nullptr);
    writer = dds_create_writer(participant,
                               topic(participant, machine + "/joint_trajectory",
                                     trajectory_msgs_msg_dds__JointTrajectory__desc),
                               qosOf(true), nullptr);
  }
  [[nodiscard]] bool areAll() const {
    return measured >= 0 && commanded >= 0 && events >= 0 && description >= 0 && writer >= 0;
  }

  dds_entity_t measured, commanded, events, description, writer;
};

void printWhatCame(const Ends& ends) {
  take<State>(ends.measured, [](const State& message) { print("measured", message); });
  take<State>(ends.commanded, [](const State& message) { print("commanded", message); });
  take<std_msgs_msg_dds__String_>(ends.events, [](const auto& message) {
    std::cout << "event " << message.data_ << '\n' << std::flush;
  });
  const auto describe = [](const std::string& text) {
    std::cout << "description " << text << '\n' << std::flush;
  };
  take<std_msgs_msg_dds__String_>(
      ends.description, [&](const auto& message) { describe(message.data_); },
      [&] { describe(""); });
}

/// Sends a trajectory for each line of the standard input, until that ends.
void talk(const Ends& ends) {
  std::setvbuf(stdin, nullptr, _IONBF, 0);  // poll() is to see each line
  pollfd input{STDIN_FILENO, POLLIN, 0};
  for (std::string line;;) {
    printWhatCame(ends);
    if (poll(&input, 1, 5) <= 0) {
      continue;
    }
    if (!std::getline(std::cin, line)) {
      return;
    }
    dds_publication_matched_status_t matched{};
    dds_get_publication_matched_status(ends.writer, &matched);
    std::cout << "sent to " << matched.current_count << '\n' << std::flush;
    send(ends.writer, line);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    return 2;
  }
  const auto domain = static_cast<dds_domainid_t>(std::stoul(argv[1]));
  const std::string interface = argv[2];
  dds_create_domain(domain, (R"(<Domain Id="any"><General><Interfaces><NetworkInterface name=")" +
                             interface + R"("/></Interfaces></General></Domain>)")
                                .c_str());
  const dds_entity_t participant = dds_create_participant(domain, nullptr, nullptr);
  const Ends ends(participant, argv[3]);
  if (participant < 0 || !ends.areAll()) {
    return 1;
  }
  talk(ends);
  dds_delete(participant);
  return 0;
}
