#pragma once

#include <map>
#include <set>
#include <string>

#include "bridge/network.h"

namespace bridge {

/// Looks out for other bridges on the network that have topics of this one. One thread at a time.
class OtherBridges {
 public:
  /// The network must outlive the object. Throws `std::runtime_error`.
  OtherBridges(const Network& network, const Configuration& configuration);

  /// Says which ones have come since the latest look. Does not wait.
  void look();

 private:
  /// What one of them has of this one's topics.
  struct Shared {
    std::set<std::string> topics;
    bool takesTrajectories = false;
  };

  void takeFrom(const Entity& reader, std::map<std::string, Shared>& found);
  void note(const dds_builtintopic_endpoint_t& endpoint, bool takes,
            std::map<std::string, Shared>& found) const;

  const Network& network_;
  /// Of this bridge, as DDS has them.
  std::set<std::string> topics_;
  Entity readers_;
  Entity writers_;
};

}  // namespace bridge
