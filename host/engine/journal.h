#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "host/engine/request.h"
#include "host/motion/scheduledbatch.h"

namespace host {

/// One thing that the engine did, or that was done to it, and that decides where axes move.
struct JournalEntry {
  enum class Kind : std::uint8_t {
    nodes,    ///< what was laid in before the first cycle: `numbers`, one an actuator
    batch,    ///< a batch, of which points are taken next
    take,     ///< actuators took their points of a batch
    stop,     ///< actuators were brought to rest
    moved,    ///< an axis goes on from where others moved its register
    clear,    ///< everything was taken away from an axis that the guard holds
    freed,    ///< the guard let an axis go
    hold,     ///< actuators refuse everything
    release,  ///< the end of that
    enrol,    ///< a commander came
    lose,     ///< a commander ended
    write,    ///< others wrote a register
    cycle,    ///< a cycle that does not follow the one before by the cycle time
    gap,      ///< entries are missing
  };

  Kind kind = Kind::gap;
  /// Machine time of the latest cycle before it; of a cycle, of the one before.
  std::int64_t atMs = 0;
  std::vector<int> actuators{};
  /// The number of the batch, the commander that is lost, or who stopped (as in `Event::byBatch`).
  std::uint32_t number = 0;
  /// Of a write: what the register holds since.
  std::int32_t bits = 0;
  /// Of a write: the cycle found it, and had not begun before.
  bool isFoundByCycle = false;
  /// Of a cycle.
  std::int64_t timeMs = 0;
  Fault why = Fault::none;
  std::vector<std::size_t> numbers{};
  ScheduledBatch batch{};
  std::shared_ptr<const Enrolment> enrolment{};
};

/// Keeps a journal, by which a run can be done again.
class JournalKeeper {
 public:
  JournalKeeper() = default;
  JournalKeeper(const JournalKeeper&) = delete;
  JournalKeeper& operator=(const JournalKeeper&) = delete;
  virtual ~JournalKeeper() = default;

  // The thread that calls `Engine::pass`.

  virtual void note(JournalEntry entry) = 0;
  /// Every entry whose `atMs` lies before this machine time was noted.
  virtual void noteUntil(std::int64_t timeMs) = 0;
};

/// Collects entries, and delivers them outside of the gate; nothing where nobody
/// keeps them. Used by the command thread alone.
class Journal {
 public:
  /// Before the first cycle.
  void addKeeper(JournalKeeper& keeper) {
    keepers_.push_back(&keeper);
    brief_.reserve(usuallyMost);
  }
  [[nodiscard]] bool isKept() const { return !keepers_.empty(); }

  /// The engine does what a journal says, when it says so: nothing that clients ask for, and
  /// nothing that depends on when it looks at an axis. Before the first cycle.
  void follow() { isFollowed_ = true; }
  [[nodiscard]] bool isFollowed() const { return isFollowed_; }

  /// Not under the gate.
  void note(JournalEntry&& entry);
  /// The same for one actuator, also under the gate: takes no memory then, save for very many.
  void note(JournalEntry::Kind kind, std::int64_t atMs, int actuator, std::uint32_t number = 0,
            std::int32_t bits = 0) {
    if (isKept()) {
      brief_.push_back({kind, atMs, actuator, number, bits});
    }
  }
  void passOn(std::int64_t untilMs);

 private:
  /// An entry about one actuator.
  struct Brief {
    JournalEntry::Kind kind;
    std::int64_t atMs;
    int actuator;
    std::uint32_t number;
    std::int32_t bits;
  };
  /// Between two passes.
  static constexpr std::size_t usuallyMost = std::size_t{1} << 14;

  void spellOut();

  std::vector<JournalKeeper*> keepers_;
  bool isFollowed_ = false;
  std::vector<JournalEntry> entries_;
  /// What came after `entries_`, until it is spelt out there.
  std::vector<Brief> brief_;
};

}  // namespace host
