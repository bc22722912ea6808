#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "host/base/values.h"
#include "host/cli/clients/played.h"
#include "host/cli/fleet/clockwatch.h"
#include "host/cli/fleet/fleetfile.h"
#include "host/cli/fleet/requests.h"
#include "host/client/doorclient.h"
#include "host/results/findings.h"

namespace host {

/// A machine that plays as one of several: on a thread of its own it does what it is ordered to,
/// renews its lease, and watches the clock and the events of the machine. A machine that is slow or
/// gone holds up nobody else.
class Member {
 public:
  /// `committed`: it has answered the go.
  enum class Phase { preparing, prepared, enrolled, sent, committed, over, gone };
  enum class Order { prepare, enrol, play, go, leave, hold };

  /// What became of giving the axes back.
  struct Ending {
    /// Whether the machine has said that they are nobody's.
    bool hasLeft = false;
    /// Whether that was before the moment at which its motions were to begin, or it has none.
    bool beginsNothing = false;
    /// What came of the hold, where it was ordered.
    std::optional<FleetOutcome> hold;
  };

  /// How it stands.
  struct View {
    Phase phase = Phase::preparing;
    /// Of who is gone: why, unless it was ordered to leave.
    FleetOutcome outcome;
    /// What the machine says of the end; once it was asked, or has not answered.
    std::optional<Ending> ending;
    FleetClock clock;
    std::int64_t machineZeroNs = 0;
    bool isHeldUp = false;
    std::int64_t overruns = 0;
    /// How often what its clock says contradicted what it had said before.
    int contradictions = 0;
    /// On the fleet's clock: when it was alive for sure.
    std::int64_t aliveNs = 0;
    /// What its first points need, and how long it took to find that out.
    std::int64_t approachMs = 0;
    std::int64_t preparedInMs = 0;
    /// What the machine would warn of in its motions.
    std::vector<Finding> warnings;
    /// What it notes of them.
    std::vector<std::string> notes;
    Played played;
  };

  /// Asks the machine what it would make of these motions. The machine must outlive the object.
  Member(const FleetMachine& machine, std::vector<std::string> motions, bool ignoreUnknownJoints);
  /// Waits for the thread, which must have been ordered to leave.
  ~Member();

  Member(const Member&) = delete;
  Member& operator=(const Member&) = delete;

  [[nodiscard]] const std::string& name() const { return machine_.name; }
  [[nodiscard]] View view() const;

  /// To own the axes of its motions.
  void enrol() { give(Order::enrol); }
  /// To begin at this machine time, with an approach of this length; after `enrol`.
  void play(std::int64_t atMs, std::int64_t approachMs);
  /// To begin indeed. Until the machine has taken that, its lease ends before the moment, so that
  /// nothing begins where a cancellation does not arrive.
  void go() { give(Order::go); }
  /// To give its axes back: what waits is cleared, and they ramp to rest. Whatever it waits for, it
  /// does so at once.
  void leave() { give(Order::leave); }
  /// The same, and to refuse everything until a release.
  void hold() { give(Order::hold); }

 private:
  void give(Order order);
  [[nodiscard]] bool isToLeave() const { return order_ >= Order::leave; }
  void run();
  std::string act();
  void prepare();
  void findFresh();
  void doEnrol();
  void wakeFresh();
  void send();
  void follow();
  void note(const Json& event);
  void await(Order order);
  void watchOver();
  void enter(Phase phase);
  void tellClock();
  void tellPlayed();
  void renew();
  [[nodiscard]] std::int64_t leaseMs() const;
  [[nodiscard]] Ending end();
  [[nodiscard]] bool wasClearedBefore();
  [[nodiscard]] FleetOutcome askOnce(const std::function<void(DoorClient&)>& ask) const;

  const FleetMachine& machine_;
  const std::vector<std::string> motions_;
  const bool ignoresUnknownJoints_;

  std::atomic<Order> order_{Order::prepare};
  std::atomic<std::int64_t> atMs_{0};
  std::atomic<std::int64_t> approachMs_{0};
  std::atomic<bool> abandoned_{false};
  mutable std::mutex mutex_;
  View view_;

  // Of the thread.
  std::unique_ptr<DoorClient> door_;
  std::unique_ptr<EventLines> events_;
  ClockWatch watch_;
  Json keys_;
  std::set<std::string> fresh_;
  std::string key_;
  std::int64_t longLeaseMs_ = 1000;
  /// Whether the motions are there, but not the go.
  bool isToBeTold_ = false;
  std::int64_t renewedNs_ = 0;
  Json answer_;
  Played played_;
  /// Machine time of the latest event of the motion.
  std::int64_t notedMs_ = 0;

  std::thread thread_;
};

}  // namespace host
