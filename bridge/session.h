#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>

#include "bridge/intake.h"
#include "bridge/jointstates.h"
#include "bridge/topics.h"
#include "bridge/trajectory.h"
#include "host/base/attributekeys.h"
#include "host/base/values.h"
#include "simulation/observer.h"

namespace bridge {

/// Which events a machine has told of.
struct EventsSeen {
  std::string instance;
  /// Of the next one.
  std::uint64_t number = 0;
};

/// A machine that runs, from the moment at which it is found to its end.
class Session {
 public:
  /// Throws what `host::DoorClient` throws, and `simulation::Error` without its device pool.
  Session(Topics& topics, Intake& intake, const Configuration& configuration,
          const std::string& machine, EventsSeen& seen);

  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Until the machine ends or a signal comes.
  void run();

 private:
  /// What waits to be handed over.
  struct Order {
    std::string body;
    std::string summary;
    bool isStop = false;
    /// When it came, on the clock that goes on while the computer sleeps.
    std::int64_t cameNs = 0;
  };

  /// Whatever it throws ends the session.
  void guarded(const std::function<void()>& part) noexcept;
  void end();

  /// Of the machine, for who comes later, too.
  void tellDescription();

  /// The parts, each in a thread of its own: none waits for another one. Trajectories come in that
  /// of the intake.
  void tellStates();
  void tellEvents();
  void handOver();

  void take(const JointTrajectory& message);
  void handOver(const Order& order);
  [[nodiscard]] bool isOver() const;

  Topics& topics_;
  Intake& intake_;
  const Configuration& configuration_;
  std::string socket_;
  host::Json machine_;
  simulation::Observer observer_;
  host::AttributeKeys keys_;
  EventsSeen& seen_;
  std::atomic<bool> ended_{false};

  std::mutex mutex_;
  std::condition_variable ordered_;
  std::deque<Order> orders_;
};

}  // namespace bridge
