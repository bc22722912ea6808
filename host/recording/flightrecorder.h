#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/input/machinemodel.h"
#include "host/recording/messagering.h"
#include "host/recording/recordingtarget.h"
#include "host/recording/ringfiles.h"
#include "host/recording/rowring.h"

namespace host {

struct RingOptions {
  /// How much is kept: above 0.
  double seconds = 0.0;
  std::string folder;
  /// Files of one run.
  std::size_t mostFiles = 0;
};

/// Keeps the latest values and events of a run in memory, and writes them to a file of their own
/// on an event that triggers it, or on request. A file that is being written takes turns with what
/// comes meanwhile.
class FlightRecorder : public RecordingTarget {
 public:
  /// Has all memory there, and touched. The machine must outlive the object. Throws
  /// `simulation::Error` where it would be too much memory, or the folder cannot be written to.
  FlightRecorder(const RingOptions& options, const MachineModel& machine,
                 const RecordingHead& head);
  ~FlightRecorder() override;

  /// Any thread, never the cycle: has a file written of what was, and of what comes in the next
  /// `RingFiles::afterMs`. Soon after another file this one comes later, if it still reaches back
  /// to this moment.
  RingFiles::Granted ask(const std::string& reason) { return files_.ask(reason, latestMs_); }
  [[nodiscard]] const RingFiles& files() const { return files_; }

  RecordingTopics& begin(const RecordingHead& head) override;
  void addRow(const std::vector<double>& row) override;
  void see(const Event& event) override;
  void rest() override;
  void finish() override;

 private:
  struct Writing;

  void beginWriting(const RingFiles::File& file);
  /// Writes as long as `goesOn`, which is asked before each row.
  template <typename GoesOn>
  void write(GoesOn goesOn);

  const std::int64_t keptMs_;
  const MachineModel& machine_;
  const std::vector<McapAttachment> attachments_;
  RowRing rows_;
  MessageRing messages_;
  RingFiles files_;
  std::atomic<std::int64_t> latestMs_{0};
  const RecordingHead* head_ = nullptr;
  std::optional<RecordingTopics> keeping_;
  std::unique_ptr<Writing> writing_;
};

}  // namespace host
