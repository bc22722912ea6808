#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/engine/journal.h"
#include "host/input/machinemodel.h"
#include "host/motion/event.h"
#include "host/recording/jointstate.h"
#include "host/recording/mcapwriter.h"
#include "host/recording/recordinghead.h"

namespace host {

// The topics, behind the name of the machine.

constexpr char commandTopic[] = "/commanded_joint_states";
constexpr char measuredTopic[] = "/joint_states";
constexpr char attributeTopic[] = "/attributes";
constexpr char eventTopic[] = "/events";
constexpr char journalTopic[] = "/journal";

/// The files of a machine's description.
std::vector<McapAttachment> filesOf(const MachineModel& machine);

/// What a recording holds of a run, as messages.
class RecordingTopics {
 public:
  /// Begins the file, see `McapWriter`. The arguments after it must outlive the object.
  RecordingTopics(McapWriter::Write write, const RecordingHead& head, const MachineModel& machine,
                  const std::vector<McapAttachment>& files);

  /// A row of the cycle: two times, the columns, the attributes.
  void addRow(const std::vector<double>& row);
  void addEvent(const Event& event, const std::vector<Point>& points);
  void addJournal(const JournalEntry& entry);
  /// That so many of these ("dropped_rows") are missing here.
  void addDropped(const char* kind, std::int64_t machineMs, std::uint64_t count) {
    addDropped(kind, machineMs, count, eventCount_++);
  }
  /// The same, where events are added that were kept: with a number that none of them has.
  void addDropped(const char* kind, std::int64_t machineMs, std::uint64_t count,
                  std::uint64_t number);
  void finish() { writer_.finish(); }

  /// Takes a message that is no row, instead of the file.
  using Keep =
      std::function<void(std::uint16_t channel, std::uint64_t timeNs, std::string_view data)>;
  void keepIn(Keep keep) { keep_ = std::move(keep); }
  /// Adds a message that was kept, by another one for the same machine.
  void addKept(std::uint16_t channel, std::uint64_t timeNs, std::string_view data) {
    writer_.addMessage(channel, timeNs, data);
  }

 private:
  /// Some columns of a row, as the joint states of one topic.
  struct Joints {
    std::uint16_t channel;
    std::vector<std::size_t> positions;
    JointStateEncoder encoder;
    std::vector<double> values;
  };

  [[nodiscard]] Joints joints(std::uint16_t schema, const char* topic, bool isCommand);
  void addAttributes(const std::vector<double>& row, std::uint64_t timeNs);
  /// A message that is no row.
  void add(std::uint16_t channel, std::uint64_t timeNs, std::string_view data);

  const RecordingHead& head_;
  const MachineModel& machine_;
  McapWriter writer_;
  Keep keep_;
  std::vector<Joints> joints_;
  std::uint16_t attributes_ = 0;
  std::uint16_t events_ = 0;
  std::uint16_t journal_ = 0;
  std::uint64_t eventCount_ = 0;
  std::uint64_t entryCount_ = 0;
  std::vector<double> lastAttributes_;
};

}  // namespace host
