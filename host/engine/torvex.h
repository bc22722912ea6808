#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/engine/cyclering.h"
#include "host/engine/engine.h"
#include "host/engine/rowqueue.h"
#include "host/engine/runresult.h"
#include "host/engine/sessionoptions.h"
#include "host/motion/plan.h"

namespace host {

/// A quantity that is written down every cycle.
struct TracedColumn {
  /// "NAME/command" or "NAME/measured".
  std::string name;
  const hal::DeviceAttrGeneric* attribute = nullptr;
};

/// An axis that is commanded, and where the traced columns hold it.
struct ShownAxis {
  const Axis& axis;
  std::size_t commandColumn = 0;
  std::optional<std::size_t> measuredColumn;
};

/// What is written down of a run: the actuators that the plan commands, or all where commands may
/// come later, in the order of the machine, with what measures them, and all other sensors.
struct TracedValues {
  std::vector<ShownAxis> axes;
  std::vector<TracedColumn> columns;
};

}  // namespace host

/// The reference host: an engine, its threads and clocks, for one run of one plan.
class Torvex {
 public:
  /// Called now and then, outside the control cycle, with the machine time in milliseconds
  /// of the latest cycle.
  using Progress = std::function<void(std::int64_t timeMs)>;

  /// Starts everything up, ready for the first cycle. The arguments must outlive
  /// the object. Throws `simulation::Error`.
  Torvex(const host::MachineModel& machine, const host::Plan& plan,
         const host::SessionOptions& options);

  Torvex(const Torvex&) = delete;
  Torvex& operator=(const Torvex&) = delete;

  /// Who is told what becomes of points. Before `run`.
  void addListener(host::Listener& listener) { engine_.addListener(listener); }

  /// Makes the plan that of a commander of this name: nobody else commands its axes until it has
  /// come to its end. Before `run`.
  void ownPlan(const std::string& name);

  /// Further quantities behind those of `columnNames`, in all rows. Before `run`.
  void addColumns(const std::vector<host::TracedColumn>& columns);
  /// Every cycle puts a row into this queue: machine time and the time since the start of the
  /// motion, in milliseconds, then all columns. Before `run`, which must end before the queue does.
  /// Rows that it drops are told as events, with the name of the output.
  void addRows(host::RowQueue& rows, const std::string& output) {
    outputs_.push_back({rows, std::make_shared<const std::string>(output)});
  }

  /// Who keeps what the run can be done again by. Before `run`.
  void addJournalKeeper(host::JournalKeeper& keeper) { engine_.addJournalKeeper(keeper); }

  /// Every cycle adds its values to this ring. Set before `run`, which must end before the ring
  /// does.
  void setCycles(host::CycleRing* cycles) { cycles_ = cycles; }

  /// Hands the plan in and runs until every timeline has run out and the measured values
  /// have settled. A signal to stop ends it at once in simulated time; in real time all axes ramp
  /// to rest first, save at a second signal. Lets through what a cycle throws.
  void run(const Progress& progress);

  // Instead of `run`, by one thread, in simulated time: what a journal says is done again.

  /// Before anybody asks for anything: nothing will be done that clients ask for.
  void followJournal() { engine_.followJournal(); }
  /// With so many nodes an axis.
  void beginReplay(const std::vector<std::size_t>& nodes);
  /// The next cycle, at this machine time, before which these things are done. Lets through what
  /// a cycle throws; false where the engine does not get there, and no cycle follows then.
  [[nodiscard]] bool replayCycle(const std::vector<host::JournalEntry>& entries,
                                 std::int64_t timeMs);
  void endReplay();
  /// Of the latest cycle, as `addRows` has it.
  [[nodiscard]] const std::vector<double>& latestRow() const { return row_; }

  /// Where the grid of the cycles begins on the clock of `bootNs`; none before a run in real time.
  /// Any thread.
  [[nodiscard]] std::optional<std::int64_t> originNs() const {
    const std::int64_t originNs = originNs_;
    return originNs < 0 ? std::nullopt : std::optional(originNs);
  }

  [[nodiscard]] std::int64_t cycleMs() const { return plan_.schedule.cycleMs; }
  [[nodiscard]] host::Engine& engine() { return engine_; }
  [[nodiscard]] const host::Engine& engine() const { return engine_; }
  [[nodiscard]] const std::vector<host::ShownAxis>& shownAxes() const { return traced_.axes; }
  /// Of the quantities that each row has behind its times, without those of `addColumns`.
  [[nodiscard]] std::vector<std::string> columnNames() const;
  /// What the run came to, once it has ended; before it, how everything stands.
  [[nodiscard]] const host::RunResult& result() const { return result_; }
  /// When the last command is due, in milliseconds of machine time.
  [[nodiscard]] std::int64_t lastItemMs() const { return lastItemMs_; }

 private:
  void runSimulated(const Progress& progress);
  void runRealtime(const Progress& progress);
  void driveCycles(std::int64_t originNs);
  void driveCommands(std::int64_t originNs);
  void waitForCommands(std::int64_t untilNs);

  void cycle();
  void readBack();
  void writeDown();
  void tellDropped();
  void conclude();
  [[nodiscard]] bool hasEnded();
  [[nodiscard]] bool hasSettled() const;

  struct RowOutput {
    host::RowQueue& rows;
    std::shared_ptr<const std::string> name;
    std::uint64_t droppedTold = 0;
  };

  const host::Plan& plan_;
  std::vector<RowOutput> outputs_;
  host::CycleRing* cycles_ = nullptr;

  host::Engine engine_;
  const host::TracedValues traced_;
  std::vector<const hal::DeviceAttrGeneric*> further_;
  const std::int64_t lastItemMs_;
  host::RunResult result_;

  std::atomic<bool> ended_{false};
  std::atomic<std::int64_t> originNs_{-1};
  std::atomic<std::int64_t> latestCycleMs_;
  std::int64_t idleSinceMs_ = -1;
  std::vector<double> row_;
};
