#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "host/engine/axis.h"
#include "host/engine/cyclestate.h"
#include "host/engine/journal.h"
#include "host/engine/nodereserve.h"
#include "host/motion/event.h"

namespace host {

/// Keeps the timelines of the library in step with the backlogs: sees what cycles took,
/// and hands over what the windows are to hold.
///
/// Invariant, whenever the gate is free: the timeline of an axis holds exactly the items of
/// its window that no cycle has taken, and the window is the beginning of the path. So a push
/// changes nothing but the queue, and equal content means equal motion. Where others push or
/// clear, timeline and window differ; `look` finds that and tells it.
///
/// Used by the command thread, under the gate where a function says so.
class Timelines {
 public:
  /// The references must outlive the object.
  Timelines(const CycleState& cycles, Listener& listener, Journal& journal, std::int64_t cycleMs,
            std::uint32_t startTick);

  /// Fills the node reserve with so many nodes for each axis. Before the first cycle.
  void layInNodes(const std::vector<std::size_t>& nodesPerAxis) { reserve_.fill(nodesPerAxis); }

  /// Whether the nodes suffice for so many items that are due within two cycles. If so, the
  /// common nodes that the axis needs beyond its own are kept for it until `endLoan`.
  [[nodiscard]] bool canHold(Axis& axis, std::size_t items);
  /// Ends the loan of an axis for which no point waits.
  void endLoan(Axis& axis);

  /// Under the gate: sees what cycles have taken since the last look, and what others wrote.
  void look(Axis& axis);
  /// Under the gate: whether the timeline holds nothing, of others neither, and the guard
  /// does not move the axis.
  [[nodiscard]] static bool isAtRest(const Axis& axis) {
    return heldBy(axis).items == 0 && !axis.guard.isRamping;
  }
  /// Whether there is anything to see or to hand over. Needs no gate.
  [[nodiscard]] bool needsCare(const Axis& axis, std::int64_t latestMs) const;
  /// Under the gate, after a look: hands over what follows in the path.
  void fillUp(Axis& axis);
  /// Under the gate, after a look: the path within the window has changed. Hands over what
  /// differs, or everything anew.
  void rebuild(Axis& axis);

  /// Under the gate, after a look: goes on from where others moved the register.
  void takeUp(Axis& axis);
  /// Under the gate: takes all points away from an axis that the guard holds.
  void clear(Axis& axis);

  /// Under the gate, after a look: whether there is anything to stop, of others included. What
  /// the guard holds, or is being stopped already, is none.
  [[nodiscard]] static bool isOnItsWay(const Axis& axis);
  /// Under the gate, after a look: where a stop brings an axis to rest, as a point of this batch;
  /// none where it rests, or does not interpolate.
  [[nodiscard]] std::optional<Point> restOf(const Axis& axis, std::uint32_t batch) const;
  /// Under the gate: leaves the window alone in the timeline.
  void removeOthers(const Axis& axis);

  /// Begins the segment to the first point anew: with what the register holds and the velocity
  /// of its last step, at the latest cycle; or from rest, at the next one, where the library
  /// will resynchronise. Under the gate. `byBatch` did it, or others.
  void restart(Axis& axis, std::uint32_t byBatch) const;
  /// That start. Under the gate.
  [[nodiscard]] SegmentStart presentStart(const Axis& axis) const;
  /// Judges what the axis did up to the latest cycle, on its way to this point.
  void judge(Axis& axis, const Aim& aim);

  /// Under the gate: takes a bounded number of released nodes back into the reserve. True
  /// while there are more.
  bool takeBackSome();

  /// At the end: moves the nodes of the timeline to the reserve, which returns all nodes to
  /// the pool in the order of addresses. A timeline that returned its own would search for
  /// the position of each among the free ones.
  void empty(const Axis& axis) { reserve_.giveBack(axis.timeline->commandList); }

  /// Windows reach up to this machine time at least, once they are filled.
  void reach(std::int64_t timeMs) { reachMs_ = timeMs; }
  [[nodiscard]] Path pathOf(const Axis& axis) const { return pathOf(axis, cycles_.latestMs); }
  /// Up to which machine time this axis lets the cycle go. Needs no gate: only the command
  /// thread changes a window.
  [[nodiscard]] std::int64_t boundMs(const Axis& axis, std::int64_t latestMs) const {
    return axis.window.boundMs(axis.path(cycleMs_, latestMs));
  }

 private:
  /// For each item from the front, the cycle that took it.
  using TakenBy = std::vector<Cycle>;
  /// What a timeline holds.
  struct Held {
    std::size_t items;
    std::uint32_t firstTime;
  };

  [[nodiscard]] Path pathOf(const Axis& axis, std::int64_t latestMs) const {
    Path path = axis.path(cycleMs_, latestMs);
    path.reachMs = reachMs_;
    return path;
  }
  [[nodiscard]] static Held heldBy(const Axis& axis);
  [[nodiscard]] static std::vector<TimedCommand::commandItem> copyOf(const Axis& axis);
  void noteAllTaken(Axis& axis, const TakenBy& taken);
  [[nodiscard]] std::size_t mostItems(const Axis& axis, std::size_t held) const;

  [[nodiscard]] TakenBy takenSince(const Axis& axis) const;
  void takeFront(Axis& axis, std::vector<Aim>& taken);
  void noteTaken(Axis& axis, const Cycle& cycle, const std::vector<Aim>& taken);
  [[nodiscard]] std::vector<bool> heldItems(const Axis& axis) const;
  void reconcile(Axis& axis, const TakenBy& taken);
  void tellReached(Axis& axis, const Cycle& cycle, const std::vector<Point>& points);
  [[nodiscard]] static Event clearedEvent(const Axis& axis, std::int64_t timeMs,
                                          std::uint32_t byWhom);
  void notePresent(const Axis& axis);
  void noteExternal(Axis& axis);
  void noteGuarded(Axis& axis);
  [[nodiscard]] bool needsAnchor(const Axis& axis) const;
  [[nodiscard]] Window freshWindow(const Axis& axis) const;
  [[nodiscard]] bool merge(const Axis& axis, std::size_t held);
  void replace(const Axis& axis, std::size_t held);
  bool push(const Axis& axis, std::size_t from, TimedCommand::commandType mode);
  void assign(CommandList& nodes, const Window::Items& items, std::size_t from) const;

  [[nodiscard]] static std::size_t numberOf(const Axis& axis) {
    return static_cast<std::size_t>(axis.index);
  }
  [[nodiscard]] std::uint32_t stamp(std::int64_t timeMs) const {
    return startTick_ + static_cast<std::uint32_t>(timeMs);
  }

  const CycleState& cycles_;
  Listener& listener_;
  Journal& journal_;
  const std::int64_t cycleMs_;
  const std::uint32_t startTick_;
  std::int64_t reachMs_ = Path::nowhereMs;
  NodeReserve reserve_;
  /// Nodes that timelines have released and the reserve has not taken back yet.
  std::size_t released_ = 0;
  /// Common nodes that are kept for axes.
  std::size_t borrowed_ = 0;
};

}  // namespace host
