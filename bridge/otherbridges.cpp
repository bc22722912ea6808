#include "bridge/otherbridges.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

#include "bridge/output.h"

namespace bridge {
namespace {

/// Which bridge an endpoint belongs to; empty where it is none of a bridge.
std::string bridgeOf(const dds_builtintopic_endpoint_t& endpoint) {
  constexpr std::size_t longest = 200;
  void* data = nullptr;
  std::size_t size = 0;
  if (!dds_qget_userdata(endpoint.qos, &data, &size) || data == nullptr) {
    return "";
  }
  const std::string_view mark(static_cast<const char*>(data), std::min(size, longest));
  const bool isBridge = mark.substr(0, bridgeMark.size()) == bridgeMark;
  std::string which(isBridge ? mark.substr(bridgeMark.size()) : "");
  dds_free(data);
  return which;
}

bool areSame(const dds_guid_t& one, const dds_guid_t& other) {
  return std::equal(std::begin(one.v), std::end(one.v), std::begin(other.v));
}

}  // namespace

OtherBridges::OtherBridges(const Network& network, const Configuration& configuration)
    : network_(network),
      readers_(dds_create_reader(network.participant(), DDS_BUILTIN_TOPIC_DCPSSUBSCRIPTION, nullptr,
                                 nullptr),
               "the readers of the network"),
      writers_(dds_create_reader(network.participant(), DDS_BUILTIN_TOPIC_DCPSPUBLICATION, nullptr,
                                 nullptr),
               "the writers of the network") {
  for (const std::string& machine : configuration.machines) {
    for (const char* const kind : kinds) {
      topics_.insert(topicOf(configuration, machine, kind));
    }
  }
  topics_.erase("");  // those that are left out
}

void OtherBridges::look() {
  std::map<std::string, Shared> found;
  takeFrom(readers_, found);
  takeFrom(writers_, found);
  for (const auto& [bridge, shared] : found) {
    complain(fmt::format("warning: another bridge ({}) has {}, too{}; end one of the two, or give "
                         "other names with --topics",
                         bridge, fmt::join(shared.topics, ", "),
                         shared.takesTrajectories ? ": each trajectory is taken by both" : ""),
             About::dds);
  }
}

void OtherBridges::takeFrom(const Entity& reader, std::map<std::string, Shared>& found) {
  dds_guid_t own{};
  dds_get_guid(network_.participant(), &own);
  constexpr int atOnce = 16;
  for (int count = atOnce; count > 0;) {
    std::array<void*, atOnce> endpoints{};
    std::array<dds_sample_info_t, atOnce> infos{};
    count = dds_take(reader.handle(), endpoints.data(), infos.data(), atOnce, atOnce);
    for (int i = 0; i < count; ++i) {
      const auto position = static_cast<std::size_t>(i);
      const auto& endpoint = *static_cast<const dds_builtintopic_endpoint_t*>(endpoints[position]);
      if (infos[position].valid_data && !areSame(endpoint.participant_key, own)) {
        note(endpoint, &reader == &readers_, found);
      }
    }
    if (count > 0) {
      dds_return_loan(reader.handle(), endpoints.data(), count);
    }
  }
}

void OtherBridges::note(const dds_builtintopic_endpoint_t& endpoint, bool takes,
                        std::map<std::string, Shared>& found) const {
  if (topics_.count(endpoint.topic_name) == 0) {
    return;
  }
  if (const std::string bridge = bridgeOf(endpoint); !bridge.empty()) {
    Shared& shared = found[bridge];
    shared.topics.insert(std::string(endpoint.topic_name).substr(topicPrefix.size()));
    shared.takesTrajectories |= takes;
  }
}

}  // namespace bridge
