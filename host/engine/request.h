#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/base/words.h"
#include "host/motion/event.h"
#include "host/motion/point.h"
#include "host/motion/pointcounts.h"
#include "host/motion/scheduledbatch.h"

namespace host {

/// The number of a commander: from 1 on, and never used again. 0 is nobody.
using CommanderId = std::uint32_t;
constexpr CommanderId nobody = 0;

/// The most points that may wait of all requests, and of those of one commander. Of a batch
/// that repeats, those of one round count.
constexpr std::uint64_t mostWaitingPoints = 4'000'000;
constexpr std::uint64_t mostWaitingPointsOfCommander = 1'000'000;

/// Batches that are taken all, or none. Their values fit their actuators, and their times never
/// fall; no actuator stands twice in one batch.
struct CommandRequest {
  /// Without a moment: at once. See `ScheduledBatch::isRelative`.
  std::vector<ScheduledBatch> batches;
  /// Whose lease it renews; `nobody` commands axes that nobody owns.
  CommanderId commander = nobody;
  /// Refuses what lies beyond limits or is too fast: each batch by itself, from what is
  /// commanded when it is taken.
  bool isStrict = false;
  /// To be answered, and nothing else; as if the commander owned what nobody owns.
  bool isDryRun = false;
};

/// What becomes of the axes of a commander that is lost: its points are cleared and they ramp
/// to rest, or its points run out.
enum class LossRule : std::uint8_t { stop, runOut };

constexpr Word<LossRule> lossRuleWords[] = {{"stop", LossRule::stop},
                                            {"run_out", LossRule::runOut}};

/// Who wants to own axes, and how.
struct Enrolment {
  std::string name;
  /// Actuators, as indexes in the machine; none twice.
  std::vector<int> axes;
  /// A higher one takes axes over.
  int priority = 0;
  /// How long it lives from each sign of life on; none: until it resigns.
  std::optional<std::int64_t> leaseMs = 1000;
  LossRule onLoss = LossRule::stop;
};

/// Why something was not done. Of several reasons it is the first.
struct Denial {
  Fault reason = Fault::none;
  /// Where in the request: the batch; the actuator, -1 for none; the point, as its number.
  std::size_t batch = 0;
  int actuator = -1;
  std::uint32_t point = 0;
  /// Too dense: the points that would be due within two cycles; not finite, beyond: the value;
  /// too fast, too steep: the speed, in units a second. And what it may be at most.
  double figure = 0.0;
  double limit = 0.0;
  /// Full: how many points would still have found room.
  std::uint64_t room = 0;
  /// Owned: by whom; `nobody` where a commander commands what it does not own.
  CommanderId owner = nobody;
  std::string ownerName;
};

/// What was asked for, as the command thread did it, or did not.
struct CommandAnswer {
  struct TakenAxis {
    int actuator = -1;
    std::uint64_t points = 0;
    /// Of these, those that were due already, and those that were moved into the limits.
    std::uint64_t late = 0;
    std::uint64_t limited = 0;
  };
  struct TakenBatch {
    /// By which events tell of it; of a dry run and of what is refused, of no meaning.
    std::uint32_t number = 0;
    std::vector<TakenAxis> axes;
  };

  Denial denial;
  /// The latest cycle when it was done, in machine time.
  std::int64_t timeMs = 0;
  /// Of a `CommandRequest` that is taken, one for each batch. For a batch with a moment that is
  /// yet to come the counts are those of now.
  std::vector<TakenBatch> batches;
  /// Of an `Enrolment`: who it is now. Of a renewal and a resignation: who it is, or was.
  CommanderId commander = nobody;
  /// Of a hold, a release and a stop: the axes that it is about.
  std::vector<int> axes;

  [[nodiscard]] bool isDone() const { return denial.reason == Fault::none; }
};

/// Called once, by the thread that calls `Engine::pass`, or before the asking function returns
/// where there is no room. Must not block, throw, nor ask the engine for anything.
using Answered = std::function<void(const CommandAnswer&)>;

/// One commander, as a listener sees it.
struct CommanderState {
  CommanderId id = nobody;
  /// With the axes that it owns now.
  Enrolment enrolment;
  /// What became of its points, of all axes together.
  PointCounts counts;
};

/// Who commands what.
struct CommandState {
  struct AxisState {
    CommanderId owner = nobody;
    /// A hold latches it; the guard does.
    bool isHeld = false;
    bool isGuarded = false;
    /// What became of its points, of all clients together.
    PointCounts counts;
    /// The last point to come.
    std::optional<Point> target = std::nullopt;
  };
  /// In the order of the machine.
  std::vector<AxisState> axes;
  /// In the order of their numbers.
  std::vector<CommanderState> commanders;
};

}  // namespace host
