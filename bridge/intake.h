#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

#include "bridge/topics.h"
#include "bridge/trajectory.h"

namespace bridge {

/// Takes the trajectories for one machine from the network as soon as they come, whether the
/// machine runs or not: so none of them is old when it is handed on. What nobody takes is refused.
class Intake {
 public:
  /// Throws `Unfit` for what it refuses.
  using Use = std::function<void(const JointTrajectory& message)>;

  explicit Intake(Topics& topics);
  ~Intake();

  Intake(const Intake&) = delete;
  Intake& operator=(const Intake&) = delete;

  /// From now on; nobody, if it is empty. Returns when who had them before takes no more.
  void handTo(Use use);

 private:
  void run();
  void hand(const JointTrajectory& message);
  /// False when nothing was taken for a second, as when the process was stopped, and for a second
  /// from then on: what comes out of the network may be old.
  bool isFresh();

  Topics& topics_;
  std::mutex mutex_;
  Use use_;
  /// On the clock that goes on while the computer sleeps.
  std::int64_t lookedNs_;
  std::int64_t freshFromNs_;
  std::atomic<bool> isOver_{false};
  std::thread thread_;
};

}  // namespace bridge
