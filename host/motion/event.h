#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>

#include "host/motion/point.h"

namespace host {

/// What can become of the points of a batch, and of a machine.
enum class EventKind : std::uint8_t {
  taken,       ///< points of a batch wait on an axis
  reached,     ///< points were reached in a cycle
  cleared,     ///< points were removed by another batch, by others or by the guard
  late,        ///< points were due before they could be reached
  limited,     ///< a point was moved into the limits
  steep,       ///< a segment, or a step of one cycle, asks for more than the maximum velocity
  abrupt,      ///< a curve, or a corner of the path, asks for more than the maximum acceleration
  beyond,      ///< a curve leaves the limits between its points, or takes a follower beyond its own
  unstopped,   ///< the last point of a batch has a velocity, and is held nevertheless
  refused,     ///< a batch was refused, and why
  handedLate,  ///< machine time stood for a batch, or it came after its moment
  guarded,     ///< the guard saw a step beyond the maximum velocity, and what it did
  external,    ///< others wrote the command register
  stopped,     ///< a client had an axis ramp to rest
  held,        ///< the same, and the axis refuses all until it is released
  released,    ///< its end
  registered,  ///< a commander came
  lost,        ///< a commander lost an axis, or ended
  stalled,     ///< the machine stood, because the process did
  starved,     ///< machine time stood in cycles, because what follows was not handed over
  droppedRows,  ///< an output lacks cycles, because the disk did not keep up
  recorded,     ///< a ring was written to a file
  unrecorded,   ///< it could not be, and why
  uncertain,    ///< a rehearsal went no further: so many points are left
};
constexpr std::size_t eventKinds = 24;

/// Why a batch is refused, or an axis is held.
enum class Fault : std::uint8_t {
  none,
  full,          ///< too many points wait already
  tooDense,      ///< more points of an axis are due within two cycles than a timeline holds
  notFinite,     ///< the command register would become infinite or no number
  guarded,       ///< the guard holds the axis
  tooSteep,      ///< a velocity or an acceleration beyond all that can be computed with
  beyond,        ///< a value beyond the limits, or a curve that leaves them
  tooFast,       ///< a segment beyond the maximum velocity
  owned,         ///< the axis has another owner; of a commander that is lost, it was taken over
  held,          ///< the axis is held until it is released
  unknown,       ///< there is no such commander
  expired,       ///< the lease of the commander ran out
  resigned,      ///< the commander ended of itself
  disconnected,  ///< the connection of the commander ended, and with it the commander
  ending,        ///< the engine comes to its end
  replayed,      ///< the machine does what a recording says
};

/// What happened. An event about points names one batch, and points whose numbers in the
/// batch follow each other.
struct Event {
  EventKind kind = EventKind::taken;
  Fault reason = Fault::none;
  /// The latest cycle, or the one that it happened in: machine time.
  std::int64_t timeMs = 0;
  /// `byOthers` where it is about none.
  std::uint32_t batch = 0;
  /// The actuator, as its index in the machine; -1 for all of a batch or machine.
  int actuator = -1;
  /// The first of these points.
  std::uint32_t point = 0;
  /// How many points; for `external`, `guarded`, `starved` and `droppedRows`, cycles; for
  /// `stalled`, stalls; for `recorded`, bytes.
  std::uint64_t count = 0;
  /// `limited`, `steep`, `abrupt` and `beyond`: in how many rounds of the batch, from this one
  /// on, and how many rounds lie from one to the next.
  std::uint64_t rounds = 1;
  std::uint64_t roundStep = 1;
  /// `cleared`: the batch that did it, or one of the numbers below.
  std::uint32_t byBatch = 0;
  /// Whose batch it is about, or whom it is about; 0 is nobody.
  std::uint32_t commander = 0;
  /// `limited`: what was asked. `steep`, `guarded` and `unstopped`: the speed, in units a second.
  /// `abrupt`: units a second squared. `beyond`: the farthest value. `late`, `handedLate` and
  /// `stalled`: milliseconds. `refused` as too dense: the points that would be due within two
  /// cycles.
  double amount = 0.0;
  /// `steep`, `abrupt` and `beyond`: when, in machine time; not a number for the whole of a line.
  double momentMs = std::numeric_limits<double>::quiet_NaN();
  /// `steep` and `beyond`: whose limit it is, in the machine model; -1 for the actuator's own.
  int follower = -1;
  /// `droppedRows`: the output. `recorded`: the file. `unrecorded`: why. Else null.
  std::shared_ptr<const std::string> text = nullptr;

  static constexpr std::uint32_t byOthers = ~std::uint32_t{0};
  static constexpr std::uint32_t byGuard = byOthers - 1;
  /// By the end of the engine, a stop, a hold, and a commander that took over or was lost.
  static constexpr std::uint32_t byHost = byOthers - 2;
  static constexpr std::uint32_t byStop = byOthers - 3;
  static constexpr std::uint32_t byHold = byOthers - 4;
  static constexpr std::uint32_t byCommander = byOthers - 5;
};

/// Is told what happens, in order, by the thread that makes it happen.
class Listener {
 public:
  Listener() = default;
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  virtual ~Listener() = default;

  /// `points` are the `event.count` points that it is about, gone after the call; null where
  /// it only counts, as it does for points that are by rule alone: those of a batch that
  /// repeats when it is taken, those in its rounds when they are cleared, and those in rounds
  /// that a rehearsal counts together, with the cycle of the last one.
  virtual void tell(const Event& event, const Point* points) = 0;
};

}  // namespace host
