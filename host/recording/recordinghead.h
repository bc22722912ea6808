#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/engine/sessionoptions.h"
#include "host/recording/mcaprecords.h"
#include "simulation/machine.h"

namespace host {

/// An actuator of a recording, and where its rows hold it.
struct RecordedAxis {
  simulation::Actuator actuator;
  /// In full, as events name it.
  std::string key;
  std::size_t commandColumn = 0;
  std::optional<std::size_t> measuredColumn;
};

/// A batch that was known before the first cycle; its number is its position.
struct RecordedBatch {
  std::string mode;
  /// Of its hand-over, in milliseconds after the start of the motion; none where it has none.
  std::optional<std::int64_t> atMs;
};

/// What a recording says of itself, in the metadata record "torvex".
struct RecordingHead {
  std::string machine;
  /// What was run, for a picture.
  std::string title;
  bool isSimulated = false;
  std::int64_t cycleMs = 0;
  std::int64_t approachMs = 0;
  /// The version of its journal; none where it has none.
  std::optional<std::uint32_t> journal;
  /// The tick of machine time 0.
  std::uint32_t startTick = 0;
  GuardMode guard = GuardMode::hold;
  /// Of machine time 0: since 1970, or 0 for a run in simulated time.
  std::uint64_t originNs = 0;
  /// Of each row, "NAME/command" and "NAME/measured", as those of a trace.
  std::vector<std::string> columns;
  /// Of those behind, full keys.
  std::vector<std::string> attributes;
  std::vector<RecordedAxis> axes;
  std::vector<RecordedBatch> batches;
  /// Of a recording that begins in the midst of a run: what it was written on ("held"), when, and
  /// how many such requests before it were not granted. Else empty.
  std::string trigger;
  std::int64_t triggerMs = 0;
  std::uint64_t leftOut = 0;

  /// Whether it has all from the machine's start on.
  [[nodiscard]] bool beginsAtStart() const { return trigger.empty(); }

  [[nodiscard]] std::uint64_t timeNs(std::int64_t machineMs) const;
  [[nodiscard]] std::int64_t machineMs(std::uint64_t timeNs) const;

  [[nodiscard]] McapMetadata metadata() const;
  /// None when this is not what `metadata` makes. Throws `RecordingFault` for what is wrong in it.
  static std::optional<RecordingHead> from(const McapMetadata& metadata);
};

/// Whether a column holds what is commanded; else it is measured.
bool isCommandColumn(const std::string& column);
/// The column without what it holds.
std::string nameOfColumn(const std::string& column);

}  // namespace host
