#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "host/engine/request.h"
#include "host/engine/streamer.h"
#include "host/engine/teller.h"

namespace host {

/// Where clients ask for what a machine is to do, and are answered: batches, stops, holds, and
/// who owns which axis.
///
/// What is asked for is done by the next `pass`, in the order of asking, save that whatever is no
/// batch comes before all batches, is never refused as full, and concerns those that were asked
/// for before it as well: what a stop or a hold concerns does not move afterwards.
class Desk {
 public:
  /// The references must outlive the desk.
  Desk(Streamer& streamer, Teller& teller, std::size_t axes);

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
  /// A sign of life. Refused as `unknown`.
  void renew(CommanderId commander, Answered answered);
  /// Ends a commander by its loss rule. Refused as `unknown`.
  void resign(CommanderId commander, Answered answered);

  /// As of the latest pass.
  [[nodiscard]] CommandState state() const;

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

 private:
  struct Demand {
    std::function<CommandAnswer()> fulfil;
    Answered answered;
  };

  void demand(std::function<CommandAnswer()> fulfil, Answered answered);

  Streamer& streamer_;
  Teller& teller_;
  std::function<void(std::uint64_t)> askToRead_;
  std::atomic<std::uint64_t> readStall_{0};

  mutable std::mutex mutex_;
  std::deque<Demand> demands_;
  std::deque<std::pair<CommandRequest, Answered>> requests_;
  CommandState state_;
};

}  // namespace host
