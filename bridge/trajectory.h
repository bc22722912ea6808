#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "messages.h"

namespace bridge {

using JointTrajectory = trajectory_msgs_msg_dds__JointTrajectory_;

/// A message that cannot be handed over; `what()` says why.
class Unfit : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// When a message came, on both clocks, and what a machine takes.
struct Arrival {
  /// Nanoseconds since 1970.
  std::int64_t nowNs = 0;
  /// The latest cycle of the machine: its machine time, and when it was; 0 before the first one.
  std::int64_t cycleMs = 0;
  std::int64_t cycleNs = 0;
  /// From one cycle to the next.
  std::int64_t periodNs = 0;
  /// How far ahead a trajectory may begin.
  std::int64_t horizonNs = 0;
  std::size_t axes = 0;
};

/// Whether it has no points: then its joints are to stop.
bool isStop(const JointTrajectory& message);

/// The body of the request for a trajectory, which `POST /v1/batches` takes. A stamp of 0 means
/// now; another one becomes machine time here. The trajectory replaces, from its beginning, what
/// waits on its joints; one without points stops them at once. Throws `Unfit` for what no machine
/// would take, and for all but stops when no cycle came lately; whatever else is wrong with the
/// message is left for the machine to say.
std::string requestOf(const JointTrajectory& message, const Arrival& arrival);

/// In words: how many points for how many joints, and when.
std::string summaryOf(const JointTrajectory& message);

}  // namespace bridge
