// The plain program of tests/bridge/peer.cpp on Fast DDS, whose types are generated from the
// bridge's IDL by fastddsgen: nothing of it is shared with Cyclone DDS. peer DOMAIN
// INTERFACE MACHINE

#include <poll.h>
#include <unistd.h>

#include <fastdds/rtps/transport/UDPv4TransportDescriptor.h>
#include <cmath>
#include <cstdio>
#include <fastdds/dds/domain/DomainParticipant.hpp>
#include <fastdds/dds/domain/DomainParticipantFactory.hpp>
#include <fastdds/dds/publisher/DataWriter.hpp>
#include <fastdds/dds/publisher/Publisher.hpp>
#include <fastdds/dds/subscriber/DataReader.hpp>
#include <fastdds/dds/subscriber/SampleInfo.hpp>
#include <fastdds/dds/subscriber/Subscriber.hpp>
#include <fastdds/dds/topic/Topic.hpp>
#include <fastdds/dds/topic/TypeSupport.hpp>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>

#include "messagesPubSubTypes.h"

namespace fast = eprosima::fastdds::dds;
using fast::DataReader;
using ReturnCode = eprosima::fastrtps::types::ReturnCode_t;
using State = sensor_msgs::msg::dds_::JointState_;
using Text = std_msgs::msg::dds_::String_;
using Trajectory = trajectory_msgs::msg::dds_::JointTrajectory_;

namespace {

fast::DomainParticipant* joined(std::uint32_t domain) {
  fast::DomainParticipantQos qos = fast::PARTICIPANT_QOS_DEFAULT;
  auto udp = std::make_shared<eprosima::fastdds::rtps::UDPv4TransportDescriptor>();
  qos.transport().user_transports = {udp};
  qos.transport().use_builtin_transports = false;
  return fast::DomainParticipantFactory::get_instance()->create_participant(domain, qos);
}

fast::Topic* topic(fast::DomainParticipant* participant, const std::string& name,
                   const fast::TypeSupport& type) {
  type.register_type(participant);
  return participant->create_topic("rt/" + name, type.get_type_name(), fast::TOPIC_QOS_DEFAULT);
}

fast::DataReader* reader(fast::DomainParticipant* participant, fast::Topic* topic,
                         bool isReliable) {
  fast::DataReaderQos qos = fast::DATAREADER_QOS_DEFAULT;
  qos.reliability().kind =
      isReliable ? fast::RELIABLE_RELIABILITY_QOS : fast::BEST_EFFORT_RELIABILITY_QOS;
  qos.history().depth = isReliable ? 10 : 5;
  return participant->create_subscriber(fast::SUBSCRIBER_QOS_DEFAULT)
      ->create_datareader(topic, qos);
}

void print(const char* what, const State& state) {
  std::cout << what;
  for (std::size_t i = 0; i < state.name_().size(); ++i) {
    std::cout << ' ' << state.name_()[i] << ' ' << state.position_().at(i);
  }
  std::cout << '\n' << std::flush;
}

Trajectory trajectoryIn(const std::string& line) {
  std::istringstream words(line);
  Trajectory message;
  std::string joint;
  words >> message.header_().stamp_().sec_() >> message.header_().stamp_().nanosec_() >> joint;
  message.joint_names_({joint});
  std::string numbers[3];
  while (words >> numbers[0] >> numbers[1] >> numbers[2]) {
    trajectory_msgs::msg::dds_::JointTrajectoryPoint_ point;
    const double seconds = std::stod(numbers[0]);
    point.time_from_start_().sec_(static_cast<std::int32_t>(std::floor(seconds)));
    point.time_from_start_().nanosec_(
        static_cast<std::uint32_t>((seconds - std::floor(seconds)) * 1e9));
    point.positions_({std::stod(numbers[1])});
    point.velocities_({std::stod(numbers[2])});
    message.points_().push_back(point);
  }
  return message;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    return 2;
  }
  const std::string machine = argv[3];
  fast::DomainParticipant* const participant =
      joined(static_cast<std::uint32_t>(std::stoul(argv[1])));
  const fast::TypeSupport state(new sensor_msgs::msg::dds_::JointState_PubSubType());
  const fast::TypeSupport text(new std_msgs::msg::dds_::String_PubSubType());
  const fast::TypeSupport trajectory(new trajectory_msgs::msg::dds_::JointTrajectory_PubSubType());
  fast::DataReader* const measured =
      reader(participant, topic(participant, machine + "/joint_states", state), true);
  fast::DataReader* const commanded =
      reader(participant, topic(participant, machine + "/commanded_joint_states", state), false);
  fast::DataReader* const events =
      reader(participant, topic(participant, machine + "/events", text), true);
  fast::DataWriterQos qos = fast::DATAWRITER_QOS_DEFAULT;
  qos.history().depth = 10;
  // Of its own it asks every 3 s whether something is missing.
  qos.reliable_writer_qos().times.heartbeatPeriod = {0, 200'000'000};
  fast::DataWriter* const writer =
      participant->create_publisher(fast::PUBLISHER_QOS_DEFAULT)
          ->create_datawriter(topic(participant, machine + "/joint_trajectory", trajectory), qos);
  std::setvbuf(stdin, nullptr, _IONBF, 0);  // poll() is to see each line
  pollfd input{STDIN_FILENO, POLLIN, 0};
  while (true) {
    fast::SampleInfo info;
    State joints;
    Text line;
    while (measured->take_next_sample(&joints, &info) == ReturnCode::RETCODE_OK) {
      if (info.valid_data) {
        print("measured", joints);
      }
    }
    while (commanded->take_next_sample(&joints, &info) == ReturnCode::RETCODE_OK) {
      if (info.valid_data) {
        print("commanded", joints);
      }
    }
    while (events->take_next_sample(&line, &info) == ReturnCode::RETCODE_OK) {
      if (info.valid_data) {
        std::cout << "event " << line.data_() << '\n' << std::flush;
      }
    }
    std::string words;
    if (poll(&input, 1, 5) > 0) {
      if (!std::getline(std::cin, words)) {
        return 0;
      }
      Trajectory message = trajectoryIn(words);
      writer->write(&message);
    }
  }
}
