#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/base/values.h"
#include "host/engine/torvex.h"
#include "host/recording/journalparser.h"
#include "host/recording/recordedrun.h"

namespace host {

/// What a recording says of the machine that was run.
struct ReplayedMachine {
  RecordingHead head;
  MachineModel model;

  /// How it is run again, in a device pool that no other process sees, and the plan: none.
  [[nodiscard]] SessionOptions session() const;
  [[nodiscard]] Plan plan() const;
};

/// Throws `UserError` where a recording has no journal, or one that this version cannot follow.
ReplayedMachine readReplayedMachine(const std::string& path);

/// What a replay came to.
struct ReplayResult {
  struct Difference {
    std::int64_t timeMs = 0;
    /// "NAME/command" or "NAME/measured".
    std::string column;
    double recorded = 0.0;
    double replayed = 0.0;
  };

  std::uint64_t cycles = 0;
  /// Of them, those that the recording has, and those in which it has other values.
  std::uint64_t compared = 0;
  std::uint64_t different = 0;
  std::optional<Difference> first;
  /// Machine time of the latest cycle.
  std::int64_t lastMs = 0;
  /// What is wrong with the recording, which may have ended the replay.
  std::vector<std::string> faults;
};

/// Has an engine do again what the journal of a recording says, and holds its values against the
/// recorded ones.
class Replay {
 public:
  /// Called before each cycle, with its machine time; false ends the replay.
  using GoesOn = std::function<bool(std::int64_t timeMs)>;

  /// The host follows the journal from here on, and shows the actuators that were recorded. The
  /// references must outlive the object. Throws `UserError` where its columns are not those of the
  /// recording.
  Replay(const std::string& path, const ReplayedMachine& machine, Torvex& torvex);

  Replay(const Replay&) = delete;
  Replay& operator=(const Replay&) = delete;

  /// Once. Throws `UserError`, and lets through what a cycle throws.
  ReplayResult run(const GoesOn& goesOn);

 private:
  /// Ends the reading; with a reason where something is wrong.
  struct End {
    std::string fault;
  };

  void take(const Json& message);
  void take(const std::vector<double>& row);
  void noteDropped(const Json& event);
  void step();
  void compare(const std::vector<double>& row);

  const std::string path_;
  const RecordingHead& head_;
  Torvex& torvex_;
  JournalParser parser_;
  std::uint64_t expected_ = 0;
  /// By when they come; at one time, what the cycle itself found last.
  std::multimap<std::pair<std::int64_t, bool>, JournalEntry> pending_;
  /// Rows that the recording says it lacks.
  std::uint64_t dropped_ = 0;
  std::vector<std::size_t> nodes_;
  bool hasBegun_ = false;
  const GoesOn* goesOn_ = nullptr;
  ReplayResult result_;
};

}  // namespace host
