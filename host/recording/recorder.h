#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "host/engine/journal.h"
#include "host/engine/prioritymutex.h"
#include "host/engine/rowqueue.h"
#include "host/input/machinemodel.h"
#include "host/motion/event.h"
#include "host/recording/recordinghead.h"
#include "host/recording/recordingtarget.h"

namespace host {

/// Records a run: its rows, as a listener its events, and its journal. A thread of its own does the
/// work; what it cannot keep up with is dropped and counted. What decides a row comes before it.
class Recorder : public Listener, public JournalKeeper {
 public:
  /// What becomes of the recording when it cannot go on, told by its thread.
  using Failed = std::function<void(const std::string& why)>;

  Recorder(RecordingHead head, std::unique_ptr<RecordingTarget> target, Failed failed);
  /// Into an MCAP file, which is at its place from the first row on, and grows there. The machine
  /// must outlive the object. Throws `UserError` when the file cannot be written.
  Recorder(const std::string& path, const MachineModel& machine, RecordingHead head, Failed failed);
  /// Without `finish`, too, the recording is there, as far as it came.
  ~Recorder() override;

  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  /// Where the cycle puts its rows: the columns, then the attributes.
  [[nodiscard]] RowQueue& rows() { return rows_; }
  void tell(const Event& event, const Point* points) override;
  void note(JournalEntry entry) override;
  void noteUntil(std::int64_t timeMs) override { journaledMs_ = timeMs; }

  /// Writes what is queued, and the end. After the last row. Throws what went wrong.
  void finish();

 private:
  struct Told {
    Event event;
    /// The first ones of those that it is about.
    std::vector<Point> points;
  };

  void write();
  /// What is queued; the first row begins the file.
  void writeQueued(std::vector<double>& row);
  void begin(double firstMs);
  /// What the journal has from before a machine time.
  void writeJournal(double untilMs);
  /// Events that were told before a machine time.
  void writeEvents(double untilMs);
  void noteDropped(double timeMs);
  void stop();

  RecordingHead head_;
  const std::unique_ptr<RecordingTarget> target_;
  const Failed failed_;
  RowQueue rows_;
  PriorityMutex mutex_;
  std::vector<Told> told_;
  std::uint64_t droppedEvents_ = 0;
  std::deque<JournalEntry> noted_;
  /// What of the journal is not written yet.
  std::size_t waitingEntries_ = 0;
  std::size_t waitingValues_ = 0;
  bool isJournalCut_ = false;
  /// Rows up to this machine time may be written.
  std::atomic<std::int64_t> journaledMs_{std::numeric_limits<std::int64_t>::max()};
  // Of the thread that writes.
  /// A row waits for the journal.
  bool hasRow_ = false;
  std::deque<Told> taken_;
  /// By their machine time.
  std::multimap<std::int64_t, JournalEntry> journal_;
  RecordingTopics* topics_ = nullptr;
  std::atomic<bool> closing_{false};
  /// It has failed.
  std::atomic<bool> isOver_{false};
  std::exception_ptr failure_;
  std::thread writer_;
};

}  // namespace host
