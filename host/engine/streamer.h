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
#include "host/engine/journal.h"
#include "host/engine/preparedmerge.h"
#include "host/engine/request.h"
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
  /// A batch on its way, which may wait for its moment.
  struct Order {
    ScheduledBatch batch;
    std::uint32_t number = 0;
    /// Of its actuators, those whose points were cleared meanwhile.
    std::vector<int> cleared{};
  };
  /// Why some orders cannot be taken, and the first of them.
  struct Objection {
    std::size_t order = 0;
    Event fault;
  };

  /// The references must outlive the streamer.
  Streamer(std::deque<Axis>& axes, Gate& gate, CycleState& cycles, Teller& teller, Journal& journal,
           std::int64_t cycleMs, std::uint32_t startTick);
  /// Empties the timelines.
  ~Streamer();

  Streamer(const Streamer&) = delete;
  Streamer& operator=(const Streamer&) = delete;

  /// Before the first cycle: lays in the nodes for all that has come, at least so many an axis,
  /// and hands over what is due by then. May throw `std::bad_alloc`, as `pass`.
  void start(const std::vector<std::size_t>& nodes);
  /// Before the first cycle: has the cycle note for the journal what others write. Takes the memory
  /// for it.
  void keepWrites();

  /// One pass, between two cycles or beside one.
  void pass();

  /// Any thread: the next passes bring all axes to rest, with a ramp, and take nothing more in.
  /// Points that wait by then are told as cleared by the host.
  void end() { isEnding_ = true; }

  // What clients ask for; of the thread that passes, before `pass`.

  /// Hands over what is due, and says which cycle can still follow a batch.
  [[nodiscard]] std::int64_t nextMs();
  [[nodiscard]] bool isEnding() const { return isEnding_; }
  /// The latest cycle, as it was last seen.
  [[nodiscard]] std::int64_t latestMs() const { return latestMs_; }
  /// Why these cannot be taken one after the other; with no reason where they can. `isStrict`:
  /// nor when they ask for too much.
  [[nodiscard]] Objection findObjection(const std::vector<Order>& orders, bool isStrict);
  /// What they come to, without taking them: counts by actuator, in the order of the batch.
  [[nodiscard]] std::vector<PointCounts> countsOf(const Order& order) const;
  void take(const std::vector<Order>& orders);
  /// Counts the points of one axis of an order that is to be taken as cleared, and tells so.
  void dismiss(Order& order, int actuator, std::uint32_t byWhom);
  /// Counts all points of an order as refused, and tells why.
  void refuse(const Order& order, Event fault);
  /// Has axes ramp to rest, and tells who cleared what waits there; with `planned` also what
  /// waits for its moment.
  void stop(const std::vector<int>& axes, std::uint32_t byWhom, bool planned);
  /// Latches axes, which then refuse all; or frees them, also from the guard once it has brought
  /// them to rest.
  void latch(const std::vector<int>& axes);
  void release(const std::vector<int>& axes);
  /// Does again what a journal says of axes, after the same cycle.
  void follow(const JournalEntry& entry);
  /// See `Timelines::reach`.
  void reach(std::int64_t timeMs) { timelines_.reach(timeMs); }
  /// Lets machine time stand, or go on.
  void standStill(bool stands) { stands_ = stands; }
  /// What listeners may know of the axes.
  void copyAxisStates(std::vector<CommandState::AxisState>& states);

  [[nodiscard]] Inbox& inbox() { return inbox_; }
  /// Up to which machine time the cycle may go. Falls under the gate alone.
  [[nodiscard]] std::int64_t boundMs() const { return boundMs_; }
  /// Whether no batch that the latest pass saw waits, no point, and nothing that others have
  /// queued.
  [[nodiscard]] bool isIdle() const { return idle_; }

 private:
  /// When it is to be handed over, and of those with one moment which first.
  using Moment = std::pair<std::int64_t, std::uint32_t>;
  /// The points of one batch for one axis.
  struct Column {
    Axis& axis;
    std::size_t number;
    Rounds points;
  };
  using Columns = std::vector<Column>;
  /// Backlogs as earlier orders of the same request would leave them, by actuator.
  using Trials = std::map<int, Backlog>;
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
  void handOverDue();
  void enqueue(Order order);
  [[nodiscard]] Event findLasting(const Column& column, const Order& order, Density& density) const;
  [[nodiscard]] Event findFaultNow(const Columns& columns, const Order& order,
                                   const Trials& trials);
  [[nodiscard]] Event findExcessOf(const Columns& columns, const Order& order) const;
  [[nodiscard]] std::optional<SegmentStart> startBefore(const Column& column,
                                                        const Order& order) const;
  [[nodiscard]] Event findHeld(const Columns& columns, const Order& order);
  void tryOut(const Columns& columns, const std::vector<Order>& orders, std::size_t number,
              Trials& trials) const;
  [[nodiscard]] static bool isCleared(const Order& order, int actuator);
  void clearColumn(Order& order, int actuator, std::uint32_t byWhom);
  void clearPlanned(const std::vector<int>& axes, std::uint32_t byWhom);
  void freeFromGuard();
  void arrive(Order waiting);
  void tellPace();
  void noteCycles();
  void handOver(const Order& waiting);
  void takeOn(const Columns& columns, const Order& waiting);
  void followTake(const JournalEntry& entry);
  void followWrite(Axis& axis, std::int32_t bits);
  [[nodiscard]] Columns columnsOf(const Order& waiting);
  [[nodiscard]] Intake intakeOf(const Order& waiting, const Axis& axis, std::size_t column) const;
  [[nodiscard]] Event findFault(const Columns& columns, const Order& waiting, const Trials& trials);
  void refuse(const Columns& columns, Event fault);
  void prepare(const Column& column, const Order& waiting, Taken& taken) const;
  void takeOn(const Column& column, const Order& waiting, Taken& taken);
  template <typename Change>
  Backlog::Removed change(Axis& axis, std::uint32_t byBatch, const Change& change);
  Backlog::Removed stop(Axis& axis, std::uint32_t batch);
  void abandon();
  void tellTaken(const Column& column, const Taken& taken, const Order& waiting);
  void tellLateHandOver(const Order& waiting);
  void careForTimelines();
  void publish();
  [[nodiscard]] bool areAxesAtRest();
  [[nodiscard]] std::int64_t seeLatest();

  std::deque<Axis>& axes_;
  Gate& gate_;
  CycleState& cycles_;
  Teller& teller_;
  Journal& journal_;
  const std::int64_t cycleMs_;
  Timelines timelines_;

  Inbox inbox_;
  std::map<Moment, Order> waiting_;
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
  bool stands_ = false;
  /// Axes that the guard shall let go.
  std::vector<int> releasing_;

  /// The first cycle that the journal has not seen, and room for what it is told of: cycles off the
  /// grid, and what others wrote.
  std::uint64_t nextNoted_ = 0;
  std::vector<Cycle> irregular_;
  std::vector<ForeignWrite> writes_;
  /// What is taken next, of a journal that is followed.
  Order followed_;
};

}  // namespace host
