#include "bridge/network.h"

#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "bridge/output.h"

namespace bridge {
namespace {

struct QosDeletion {
  void operator()(dds_qos_t* qos) const { dds_delete_qos(qos); }
};
using Qos = std::unique_ptr<dds_qos_t, QosDeletion>;

/// Not the 100 ms that DDS has of its own: Cyclone DDS would not announce the reliability of a
/// writer, and there are stacks that then do not see the writer.
constexpr dds_duration_t mostBlocking = DDS_MSECS(99);

/// By which other bridges, and people, tell this one.
std::string ownMark() {
  std::array<char, 65> host{};
  gethostname(host.data(), host.size() - 1);
  return fmt::format("{}process {} on {}", bridgeMark, getpid(), host.data());
}

Qos qosOf(Delivery delivery) {
  Qos qos(dds_create_qos());
  const std::string mark = ownMark();
  dds_qset_userdata(qos.get(), mark.data(), mark.size());
  const bool isReliable = delivery != Delivery::sensorData;
  const bool isLatched = delivery == Delivery::latched;
  dds_qset_reliability(
      qos.get(), isReliable ? DDS_RELIABILITY_RELIABLE : DDS_RELIABILITY_BEST_EFFORT, mostBlocking);
  dds_qset_durability(qos.get(),
                      isLatched ? DDS_DURABILITY_TRANSIENT_LOCAL : DDS_DURABILITY_VOLATILE);
  constexpr int standardDepth = 10;
  constexpr int sensorDepth = 5;
  dds_qset_history(qos.get(), DDS_HISTORY_KEEP_LAST,
                   isLatched    ? 1
                   : isReliable ? standardDepth
                                : sensorDepth);
  // What every stack reads.
  const dds_data_representation_id_t representation = DDS_DATA_REPRESENTATION_XCDR1;
  dds_qset_data_representation(qos.get(), 1, &representation);
  return qos;
}

/// A reader that keeps the last few would forget the others in silence. This one lets the network
/// wait, and writers send again.
Qos qosOfReader() {
  constexpr int mostWaiting = 64;
  Qos qos = qosOf(Delivery::standard);
  dds_qset_history(qos.get(), DDS_HISTORY_KEEP_ALL, 0);
  dds_qset_resource_limits(qos.get(), mostWaiting, DDS_LENGTH_UNLIMITED, DDS_LENGTH_UNLIMITED);
  return qos;
}

/// Of DDS, which brings names from the network.
void sayOfDds(void* /*unused*/, const dds_log_data_t* data) {
  std::string_view text(data->message, data->size);
  while (!text.empty() && text.back() == '\n') {
    text.remove_suffix(1);
  }
  complain(fmt::format("warning: DDS: {}", text), About::dds);
}

/// The participant, or an error.
dds_entity_t joined(const Configuration& configuration) {
  dds_set_log_sink(sayOfDds, nullptr);
  const dds_entity_t domain =
      dds_create_domain(configuration.domain, domainText(configuration).c_str());
  const bool isThere = domain >= 0 || domain == DDS_RETCODE_PRECONDITION_NOT_MET;
  return isThere ? dds_create_participant(configuration.domain, nullptr, nullptr) : domain;
}

dds_entity_t createdTopic(const Network& network, const std::string& topic,
                          const dds_topic_descriptor_t& type) {
  return dds_create_topic(network.participant(), &type, topic.c_str(), nullptr, nullptr);
}

}  // namespace

// On loopback there is no multicast: who is there is found by asking the first
// ports. Ports are those of the domain, which a firewall can let through. Where packets get lost,
// who is alive says so often enough.
std::string domainText(const Configuration& configuration) {
  const bool isLoopback = configuration.interface == "lo";
  return fmt::format(
      "<Domain Id=\"any\"><General><Interfaces><NetworkInterface "
      "name=\"{}\"/></Interfaces>{}"
      "</General><Discovery><LeaseDuration>20s</"
      "LeaseDuration><SPDPInterval>2s</SPDPInterval>"
      "<ParticipantIndex>auto</ParticipantIndex>{}"
      "</Discovery><Internal><MaxSampleSize>{}B</MaxSampleSize></Internal></"
      "Domain>",
      configuration.interface, isLoopback ? "<AllowMulticast>false</AllowMulticast>" : "",
      isLoopback ? "<MaxAutoParticipantIndex>32</MaxAutoParticipantIndex>"
                   "<Peers><Peer address=\"127.0.0.1\"/></Peers>"
                 : "<MaxAutoParticipantIndex>119</MaxAutoParticipantIndex>",
      Network::mostBytes);
}

Entity::Entity(dds_entity_t handle, const char* what) : handle_(handle) {
  if (handle < 0) {
    throw std::runtime_error(fmt::format("{}: DDS says '{}'", what, dds_strretcode(handle)));
  }
}

Entity::~Entity() {
  dds_delete(handle_);
}

Network::Network(const Configuration& configuration)
    : interface_(configuration.interface),
      participant_(joined(configuration),
                   "the domain cannot be joined, perhaps as too many of this computer are in it") {
  // Who sneaked in before writes to no reader: there is none yet.
  interface_.confineSockets();
}

Writer::Writer(const Network& network, const std::string& topic, const dds_topic_descriptor_t& type,
               Delivery delivery)
    : topic_(createdTopic(network, topic, type), topic.c_str()),
      writer_(
          dds_create_writer(network.participant(), topic_.handle(), qosOf(delivery).get(), nullptr),
          topic.c_str()) {}

bool Writer::write(const void* message) {
  const dds_return_t result = dds_write(writer_.handle(), message);
  if (result < 0 && result != DDS_RETCODE_TIMEOUT) {
    throw std::runtime_error(fmt::format("DDS cannot write: {}", dds_strretcode(result)));
  }
  return result == DDS_RETCODE_OK;
}

void Writer::dispose(const void* message) {
  dds_dispose(writer_.handle(), message);
}

Reader::Reader(const Network& network, const std::string& topic, const dds_topic_descriptor_t& type)
    : topic_(createdTopic(network, topic, type), topic.c_str()),
      reader_(
          dds_create_reader(network.participant(), topic_.handle(), qosOfReader().get(), nullptr),
          topic.c_str()),
      condition_(dds_create_readcondition(reader_.handle(), DDS_ANY_STATE), topic.c_str()),
      waitset_(dds_create_waitset(network.participant()), topic.c_str()) {
  dds_waitset_attach(waitset_.handle(), condition_.handle(), 0);
}

std::uint32_t Reader::take(int waitMs, const std::function<void(const void* message)>& take) {
  dds_waitset_wait(waitset_.handle(), nullptr, 0, DDS_MSECS(waitMs));
  constexpr int atOnce = 16;
  std::array<void*, atOnce> messages{};
  std::array<dds_sample_info_t, atOnce> infos{};
  const int count = dds_take(reader_.handle(), messages.data(), infos.data(), atOnce, atOnce);
  for (int i = 0; i < count; ++i) {
    const auto position = static_cast<std::size_t>(i);
    if (infos[position].valid_data) {
      take(messages[position]);
    }
  }
  if (count > 0) {
    dds_return_loan(reader_.handle(), messages.data(), count);
  }
  dds_sample_lost_status_t lost{};
  dds_get_sample_lost_status(reader_.handle(), &lost);
  return static_cast<std::uint32_t>(lost.total_count_change);
}

}  // namespace bridge
