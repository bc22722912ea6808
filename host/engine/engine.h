#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/engine/axis.h"
#include "host/engine/cyclestate.h"
#include "host/engine/desk.h"
#include "host/engine/engineoptions.h"
#include "host/engine/gate.h"
#include "host/engine/guard.h"
#include "host/engine/journal.h"
#include "host/engine/library.h"
#include "host/engine/pacer.h"
#include "host/engine/streamer.h"
#include "host/engine/teller.h"
#include "host/input/machinemodel.h"
#include "simulation/framework.h"
#include "simulation/machine.h"

namespace host {

/// A machine and the library that drives it, with everything that commands it on one road.
/// It has no thread and no clock of its own: `pass` is the work of a command thread, `cycle`
/// that of the cycle thread, one beside the other or in turn.
///
/// The order of locks: gate, timelines, node pool.
class Engine {
 public:
  /// Starts the machine and the library, for a host that the registry is to name. The
  /// machine must outlive the engine. Throws `simulation::Error`; then nothing is left.
  Engine(const MachineModel& machine, std::int64_t cycleMs, const EngineOptions& options = {},
         Torvex* host = nullptr);

  /// Who is told what becomes of points, by the thread that calls `pass`. Before `start`.
  void addListener(Listener& listener) { teller_.addListener(listener); }

  /// Who keeps what a run can be done again by. Before `start`.
  void addJournalKeeper(JournalKeeper& keeper);

  /// Hands a batch in, from any thread. Its number, by which events tell of it; none when
  /// too much waits already. Its values fit its actuators, and its times never fall.
  std::optional<std::uint32_t> submit(ScheduledBatch batch) {
    return streamer_.inbox().put(std::move(batch));
  }

  /// Once, before the first cycle: lays in memory for what has come so far, and at least so many
  /// nodes an axis.
  void start(const std::vector<std::size_t>& nodes = {}) { streamer_.start(nodes); }

  /// See `Streamer::pass`, and `Desk::pass` for the time.
  void pass(std::int64_t clockMs = 0) {
    desk_.pass(clockMs);
    streamer_.pass();
    desk_.publish();
  }

  /// What clients ask for. As its own contract says.
  [[nodiscard]] Desk& desk() { return desk_; }
  [[nodiscard]] const Desk& desk() const { return desk_; }

  /// Instead of all that clients ask for: this engine does what a journal says.
  void followJournal() { journal_.follow(); }
  /// Does it again, after the same cycle, by the thread that calls `pass`.
  void follow(const JournalEntry& entry);
  /// Windows reach up to this machine time at least, from the next pass on.
  void reach(std::int64_t timeMs) { streamer_.reach(timeMs); }

  /// See `Streamer::end`. Any thread.
  void end() { streamer_.end(); }

  /// A cycle is awake, when the clock has come to this point of its grid. The next three are
  /// the cycle thread's and allocate nothing.
  void wake(std::int64_t clockCycle) noexcept { pacer_.wake(clockCycle); }
  /// Whether machine time may go on by all that it should. Waits for nothing.
  [[nodiscard]] bool canGoOn() const noexcept {
    return !pacer_.isHeld(pacer_.stepMs(streamer_.boundMs()));
  }
  /// Drives the library by the machine time that may pass, and says how much that is, in
  /// milliseconds; 0 when machine time has to stand: then nothing happened. Waits for the
  /// gate. Lets through what the platform throws.
  std::int64_t goOn();

  /// Machine time of the latest cycle, one cycle before 0 at first. Cycle thread.
  [[nodiscard]] std::int64_t timeMs() const noexcept { return pacer_.timeMs(); }
  /// Any thread.
  [[nodiscard]] bool isIdle() const { return streamer_.isIdle(); }
  /// After the last cycle, or from the cycle thread.
  [[nodiscard]] const PaceCount& pace() const noexcept { return pacer_.count(); }

  /// As of the latest cycle. Any thread; waits for the gate.
  struct Now {
    std::int64_t timeMs = 0;
    /// How far the clock's grid is ahead of it: it rises where machine time stands.
    std::int64_t lagMs = 0;
    PaceCount pace;
  };
  [[nodiscard]] Now now();

  [[nodiscard]] simulation::Machine& machine() { return machine_; }
  [[nodiscard]] const std::deque<Axis>& axes() const { return axes_; }
  [[nodiscard]] const EventRing& events() const { return teller_.ring(); }

 private:
  void addAxes(const MachineModel& machine, std::int64_t cycleMs);
  void noteExternalWrites(const Cycle& cycle) noexcept;
  [[nodiscard]] std::uint32_t stamp(std::int64_t timeMs) const noexcept {
    return startTick_ + static_cast<std::uint32_t>(timeMs);
  }

  const std::uint32_t startTick_;
  simulation::Machine machine_;
  const simulation::Framework framework_;
  Library library_;
  std::deque<Axis> axes_;
  /// They lie together, since every cycle looks at all.
  std::vector<Register> registers_;
  Guard guard_;
  Gate gate_;
  CycleState cycles_;
  Teller teller_;
  Journal journal_;
  Pacer pacer_;
  Streamer streamer_;
  Desk desk_;
};

}  // namespace host
