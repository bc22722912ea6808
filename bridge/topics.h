#pragma once

#include <optional>
#include <string>

#include "bridge/network.h"
#include "host/base/values.h"

namespace bridge {

/// The topics of one machine, whether it runs or not. Those that are left out are not there.
class Topics {
 public:
  Topics(const Network& network, const Configuration& configuration, const std::string& machine);

  /// A line of JSON, as the door tells it. False when readers took nothing for seconds.
  bool tell(const host::Json& event);
  /// Says on standard error and among the events that a trajectory was not taken.
  void tellRefusal(const std::string& what, const std::string& why);

  /// As the topics have it, for people.
  std::string name;
  std::optional<Writer> measured;
  std::optional<Writer> commanded;
  std::optional<Writer> events;
  std::optional<Writer> description;
  std::optional<Reader> trajectories;
};

}  // namespace bridge
