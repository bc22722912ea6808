#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "host/engine/axis.h"
#include "host/engine/cyclestate.h"
#include "host/engine/gate.h"
#include "host/engine/inbox.h"
#include "host/engine/preparedmerge.h"
#include "host/engine/teller.h"
#include "host/engine/timelines.h"
#include "host/motion/intake.h"

namespace host {

/// The work of the command thread: takes batches into the backlogs at their moments, keeps
/// the windows full, tells what became of each point, and says how far the cycle may go.
///
/// One thread at a time; `boundMs`, `isIdle` and `end` any, `inbox` as its own contract says.
class Streamer {
 public:
  /// The references must outlive the streamer.
  Streamer(std::deque<Axis>& axes, Gate& gate, CycleState& cycles, Teller& teller,
           std::int64_t cycleMs, std::uint32_t startTick);
  /// Empties the timelines.
  ~Streamer();

  Streamer(const Streamer&) = delete;
  Streamer& operator=(const Streamer&) = delete;

  /// Before the first cycle: lays in the nodes for all that has come, and hands over what
  /// is due by then. May throw `std::bad_alloc`, as `pass`.
  void start();

  /// One pass, between two cycles or beside one.
  void pass();

  /// Any thread: the next passes bring all axes to rest, with a ramp, and take nothing more in.
  /// Points that wait by then are left.
  void end() { isEnding_ = true; }

  [[nodiscard]] Inbox& inbox() { return inbox_; }
  /// Up to which machine time the cycle may go. Falls under the gate alone.
  [[nodiscard]] std::int64_t boundMs() const { return boundMs_; }
  /// Whether no batch that the latest pass saw waits, no point, and nothing that others have
  /// queued.
  [[nodiscard]] bool isIdle() const { return idle_; }

 private:
  /// A batch that waits for its moment.
  struct Waiting {
    ScheduledBatch batch;
    std::uint32_t number = 0;
  };
  /// When it is to be handed over, and of those with one moment which first.
  using Moment = std::pair<std::int64_t, std::uint32_t>;
  /// The points of one batch for one axis.
  struct Column {
    Axis& axis;
    std::size_t number;
    Rounds points;
  };
  using Columns = std::vector<Column>;
  /// How a column is taken in.
  struct Taken {
    /// For a long one.
    std::optional<PreparedMerge> merge;
    std::shared_ptr<const Curve> curve;
    Backlog::Removed removed;
    /// The latest cycle before it.
    std::int64_t latestMs = 0;
  };

  void drainInbox();
  void arrive(Waiting waiting);
  void tellPace();
  void handOver(const Waiting& waiting);
  [[nodiscard]] Columns columnsOf(const Waiting& waiting);
  [[nodiscard]] Intake intakeOf(const Waiting& waiting, const Axis& axis, std::size_t column) const;
  [[nodiscard]] Event findFault(const Columns& columns, const Waiting& waiting);
  void refuse(const Columns& columns, Event fault);
  void prepare(const Column& column, const Waiting& waiting, Taken& taken) const;
  void takeOn(const Column& column, const Waiting& waiting, Taken& taken);
  template <typename Change>
  Backlog::Removed change(Axis& axis, std::uint32_t byBatch, const Change& change);
  Backlog::Removed stop(Axis& axis, std::uint32_t batch);
  void abandon();
  void tellTaken(const Column& column, const Taken& taken, const Waiting& waiting);
  void tellLateHandOver(const Waiting& waiting);
  void careForTimelines();
  void publish();
  [[nodiscard]] bool areAxesAtRest();
  [[nodiscard]] std::int64_t latestMs();

  std::deque<Axis>& axes_;
  Gate& gate_;
  CycleState& cycles_;
  Teller& teller_;
  const std::int64_t cycleMs_;
  Timelines timelines_;

  Inbox inbox_;
  std::uint32_t nextNumber_ = 0;
  std::map<Moment, Waiting> waiting_;
  /// What the batches that are known before the start need, for each axis; empty afterwards.
  std::vector<std::size_t> knownNodes_;
  /// Those with something to look at or to hand over, in the pass under way.
  std::vector<Axis*> inNeed_;
  PaceCount paceTold_;
  /// As the latest pass saw it.
  std::int64_t latestMs_;

  std::atomic<std::int64_t> boundMs_;
  std::atomic<bool> idle_{false};
  std::atomic<bool> isEnding_{false};
};

}  // namespace host
