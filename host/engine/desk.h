#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/engine/commanders.h"
#include "host/engine/journal.h"
#include "host/engine/ledger.h"
#include "host/engine/prioritymutex.h"
#include "host/engine/request.h"
#include "host/engine/streamer.h"
#include "host/engine/teller.h"
#include "host/input/machinemodel.h"

namespace host {

/// Where clients ask for what a machine is to do, and are answered: batches, stops, holds, and
/// who owns which axis.
///
/// What is asked for is done by the next `pass`, in the order of asking, save that whatever is no
/// batch comes before all batches, is never refused as full, and concerns those that were asked
/// for before it as well: what a stop or a hold concerns does not move afterwards.
///
/// Where a journal is followed, whatever is asked for is refused as `replayed`.
class Desk {
 public:
  /// The references must outlive the desk.
  Desk(Streamer& streamer, Teller& teller, Journal& journal, const MachineModel& machine,
       std::int64_t cycleMs);

  Desk(const Desk&) = delete;
  Desk& operator=(const Desk&) = delete;

  // Any thread, never the cycle; waits for a short lock. Actuators are indexes in the machine.
  // `answered` may be empty.

  /// Asks for batches. Refused as `full`, `owned`, `held`, `guarded`, `tooDense`, `notFinite`,
  /// `tooSteep`, `unknown` (the commander), `ending`; strictly also as `tooFast` and `beyond`.
  void request(CommandRequest request, Answered answered);
  /// Has axes ramp to rest; what waits on them is cleared, but for batches whose moment is yet to
  /// come. Refused as `owned` and `unknown` alone.
  void stop(std::vector<int> axes, CommanderId commander, Answered answered);
  /// Has axes ramp to rest and refuse everything until they are released; what waits for them is
  /// cleared. Never refused.
  void hold(std::vector<int> axes, Answered answered);
  /// Ends holds, and what the guard holds once it is at rest. Never refused.
  void release(std::vector<int> axes, Answered answered);
  /// Registers a commander, which takes axes over from those with a lower priority and from
  /// nobody: what waits there is cleared, and they ramp to rest. Refused as `owned`.
  void enrol(Enrolment enrolment, Answered answered);
  /// A sign of life; the lease is of this length from now on, if one is given. Refused as
  /// `unknown`.
  void renew(CommanderId commander, std::optional<std::int64_t> leaseMs, Answered answered);
  /// Ends a commander by its loss rule. Refused as `unknown`.
  void resign(CommanderId commander, Answered answered);
  /// The same when its connection has ended.
  void disconnect(CommanderId commander);

  /// Has an event told that the engine does not see itself.
  void note(Event event);

  /// As of the latest pass.
  [[nodiscard]] CommandState state() const;

  /// Makes batches that were handed in before the first pass those of one commander. It owns their
  /// axes, needs no lease, and resigns when nothing of them waits any more.
  void adopt(const std::string& name, const std::vector<Streamer::Order>& orders);

  /// After a stall no lease is judged before `askToRead` was called with its number, by the
  /// thread that calls `pass`, and `haveReadAll` with it by whoever reads what clients send; or
  /// 100 ms have passed. Machine time stands until then. Must not block or throw. Before the
  /// first pass; without one nobody is waited for.
  void setReader(std::function<void(std::uint64_t stall)> askToRead);
  void haveReadAll(std::uint64_t stall) { readStall_ = stall; }

  // The thread that calls `Engine::pass`.

  /// Does what was asked for, and answers. `clockMs` is what leases count: milliseconds of a clock
  /// that sees the computer sleep.
  void pass(std::int64_t clockMs);
  /// Makes visible to listeners how things stand.
  void publish();
  /// Does again what a journal says of commanders and holds.
  void follow(const JournalEntry& entry);

 private:
  /// Whatever is no batch.
  struct Demand {
    std::function<CommandAnswer()> fulfil;
    Answered answered;
    std::uint64_t sequence = 0;
  };
  struct Asked {
    CommandRequest request;
    Answered answered;
    std::uint64_t sequence = 0;
    std::size_t points = 0;
  };

  [[nodiscard]] bool refusesAll(const Answered& answered) const;
  void demand(std::function<CommandAnswer()> fulfil, Answered answered);
  void fulfilDemands();
  [[nodiscard]] std::optional<Asked> nextAsked();

  [[nodiscard]] CommandAnswer answerTo(const Asked& asked);
  [[nodiscard]] Denial findDenial(const CommandRequest& request) const;
  [[nodiscard]] Denial denialOf(const std::vector<Streamer::Order>& orders,
                                const Streamer::Objection& objection) const;
  [[nodiscard]] Denial ownedBy(int actuator, CommanderId owner) const;
  [[nodiscard]] CommandAnswer doneWith(std::vector<int> axes) const;
  void take(const std::vector<Streamer::Order>& orders, const Asked& asked);
  void refuse(const std::vector<Streamer::Order>& orders, const Asked& asked, const Denial& denial);
  /// What was asked for before what is being fulfilled does not move these axes.
  void noteStopped(const std::vector<int>& axes);
  void dismissStopped(Streamer::Order& order, std::uint64_t sequence);

  CommandAnswer doStop(const std::vector<int>& axes, CommanderId commander);
  CommandAnswer doHold(const std::vector<int>& axes);
  CommandAnswer doRelease(const std::vector<int>& axes);
  CommandAnswer doEnrol(const Enrolment& enrolment);
  CommandAnswer doRenew(CommanderId commander, std::optional<std::int64_t> leaseMs);
  CommandAnswer lose(CommanderId commander, Fault why);
  void judgeLeases();
  void letAdoptedResign();
  void tell(EventKind kind, const std::vector<int>& axes);
  void tellRegistered(CommanderId commander, std::size_t axes);
  void noteEnrolled(const Enrolment& enrolment);
  void tellEnrolled(CommanderId id, const Enrolment& enrolment,
                    const std::vector<Commanders::Owned>& losses);
  void tellLost(CommanderId commander, Fault why, int actuator, std::size_t axes);

  Streamer& streamer_;
  Teller& teller_;
  Journal& journal_;
  const MachineModel& machine_;
  std::function<void(std::uint64_t)> askToRead_;
  std::atomic<std::uint64_t> readStall_{0};

  // Of the thread that passes.
  Commanders commanders_;
  Ledger ledger_;
  LeaseClock leaseClock_;
  std::int64_t clockMs_ = 0;
  std::uint64_t stallTold_ = 0;
  CommanderId adopted_ = nobody;
  /// When the last of its stops is due.
  std::int64_t adoptedStopMs_ = 0;
  /// By axis: what was asked for before this does not move it.
  std::vector<std::uint64_t> stopped_;
  std::uint64_t fulfilling_ = 0;
  /// Takes turns with the state that is published.
  CommandState next_;

  mutable PriorityMutex mutex_;
  std::deque<Demand> demands_;
  std::deque<Asked> asked_;
  std::size_t askedPoints_ = 0;
  std::uint64_t sequence_ = 0;
  CommandState state_;
};

}  // namespace host
