#include "host/recording/recorder.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <limits>
#include <mutex>
#include <optional>
#include <utility>

#include "host/base/clocks.h"
#include "host/base/outputfile.h"
#include "host/engine/samplehistory.h"

namespace host {
namespace {

/// More that wait are dropped; twice as many where they are no points'.
constexpr std::size_t mostEvents = std::size_t{1} << 16;
/// More of the journal's entries, or of values in their batches, cut it.
constexpr std::size_t mostNoted = std::size_t{1} << 20;
constexpr std::size_t mostNotedValues = 2 * mostWaitingPoints;
/// As many as a picture draws.
constexpr std::uint64_t mostPointsTold = 400;

bool isAboutPoints(EventKind kind) {
  return kind == EventKind::reached || kind == EventKind::cleared || kind == EventKind::limited;
}

std::size_t valuesIn(const JournalEntry& entry) {
  return entry.kind == JournalEntry::Kind::batch ? entry.batch.commands->values.size() : 0;
}

/// A file that has all from the first row on.
class GrowingFile : public RecordingTarget {
 public:
  GrowingFile(const std::string& path, const MachineModel& machine)
      : file_(path), machine_(machine), attachments_(filesOf(machine)) {}

  RecordingTopics& begin(const RecordingHead& head) override {
    topics_.emplace([this](const char* bytes, std::size_t count) { file_.write(bytes, count); },
                    head, machine_, attachments_);
    file_.appear();
    return *topics_;
  }
  void addRow(const std::vector<double>& row) override { topics_->addRow(row); }
  void finish() override { topics_->finish(); }
  void commit() override { file_.commit(); }

 private:
  OutputFile file_;
  const MachineModel& machine_;
  const std::vector<McapAttachment> attachments_;
  std::optional<RecordingTopics> topics_;
};

}  // namespace

Recorder::Recorder(const std::string& path, const MachineModel& machine, RecordingHead head,
                   Failed failed)
    : Recorder(std::move(head), std::make_unique<GrowingFile>(path, machine), std::move(failed)) {}

Recorder::Recorder(RecordingHead head, std::unique_ptr<RecordingTarget> target, Failed failed)
    : head_(std::move(head)),
      target_(std::move(target)),
      failed_(std::move(failed)),
      rows_(rowTimes + head_.columns.size() + head_.attributes.size()) {
  writer_ = std::thread([this] {
    try {
      write();
    } catch (const std::exception& error) {
      failure_ = std::current_exception();
      rows_.close();
      isOver_ = true;
      failed_(error.what());
    }
  });
}

Recorder::~Recorder() {
  stop();
}

void Recorder::tell(const Event& event, const Point* points) {
  const bool hasPoints = points != nullptr && event.actuator >= 0 && isAboutPoints(event.kind);
  const std::uint64_t count = hasPoints ? std::min(event.count, mostPointsTold) : 0;
  const std::lock_guard lock(mutex_);
  if (told_.size() >=
      (event.kind == EventKind::taken || isAboutPoints(event.kind) ? mostEvents : 2 * mostEvents)) {
    ++droppedEvents_;
    return;
  }
  told_.push_back({event, {points, points + count}});
}

void Recorder::note(JournalEntry entry) {
  if (isOver_) {
    return;
  }
  const std::size_t values = valuesIn(entry);
  const std::lock_guard lock(mutex_);
  if (waitingEntries_ < mostNoted && waitingValues_ + values <= mostNotedValues) {
    isJournalCut_ = false;
    ++waitingEntries_;
    waitingValues_ += values;
    noted_.push_back(std::move(entry));
  } else if (!std::exchange(isJournalCut_, true)) {
    ++waitingEntries_;
    noted_.push_back({JournalEntry::Kind::gap, entry.atMs});
  }
}

void Recorder::write() {
  using namespace std::chrono_literals;
  std::vector<double> row;
  for (bool open = true; open;) {
    open = !closing_;
    writeQueued(row);
    if (open) {
      // The first row says what time it is.
      std::this_thread::sleep_for(topics_ != nullptr ? 10ms : 1ms);
    }
  }
  if (topics_ == nullptr) {
    begin(0.0);
  }
  writeJournal(std::numeric_limits<double>::infinity());
  writeEvents(std::numeric_limits<double>::infinity());
  noteDropped(row.empty() ? 0.0 : row[0]);
  target_->finish();
}

void Recorder::writeQueued(std::vector<double>& row) {
  while (hasRow_ || (hasRow_ = rows_.pop(row))) {
    if (topics_ == nullptr) {
      begin(row[0]);
    }
    if (static_cast<double>(journaledMs_.load()) < row[0]) {
      break;
    }
    hasRow_ = false;
    writeJournal(row[0]);
    // In simulated time, the same ones each time.
    writeEvents(row[0]);
    noteDropped(row[0]);
    target_->addRow(row);
  }
  if (topics_ != nullptr) {
    target_->rest();
  }
}

void Recorder::begin(double firstMs) {
  if (!head_.isSimulated) {
    head_.originNs = static_cast<std::uint64_t>(wallNs()) -
                     static_cast<std::uint64_t>(std::max(firstMs, 0.0) * 1e6);
  }
  topics_ = &target_->begin(head_);
}

void Recorder::writeJournal(double untilMs) {
  std::deque<JournalEntry> fresh;
  {
    const std::lock_guard lock(mutex_);
    fresh.swap(noted_);
  }
  for (JournalEntry& entry : fresh) {
    const std::int64_t atMs = entry.atMs;
    journal_.emplace(atMs, std::move(entry));
  }
  std::size_t entries = 0;
  std::size_t values = 0;
  for (; !journal_.empty() && static_cast<double>(journal_.begin()->first) < untilMs; ++entries) {
    const JournalEntry& entry = journal_.begin()->second;
    topics_->addJournal(entry);
    values += valuesIn(entry);
    journal_.erase(journal_.begin());
  }
  const std::lock_guard lock(mutex_);
  waitingEntries_ -= entries;
  waitingValues_ -= values;
}

void Recorder::writeEvents(double untilMs) {
  std::vector<Told> fresh;
  {
    const std::lock_guard lock(mutex_);
    fresh.swap(told_);
  }
  std::move(fresh.begin(), fresh.end(), std::back_inserter(taken_));
  for (; !taken_.empty() && static_cast<double>(taken_.front().event.timeMs) < untilMs;
       taken_.pop_front()) {
    topics_->addEvent(taken_.front().event, taken_.front().points);
    target_->see(taken_.front().event);
  }
}

void Recorder::noteDropped(double timeMs) {
  const auto machineMs = static_cast<std::int64_t>(timeMs);
  std::uint64_t events = 0;
  {
    const std::lock_guard lock(mutex_);
    std::swap(events, droppedEvents_);
  }
  if (events > 0) {
    topics_->addDropped("dropped_events", machineMs, events);
  }
}

void Recorder::stop() {
  journaledMs_ = std::numeric_limits<std::int64_t>::max();
  closing_ = true;
  if (writer_.joinable()) {
    writer_.join();
  }
}

void Recorder::finish() {
  stop();
  if (failure_ != nullptr) {
    std::rethrow_exception(failure_);
  }
  target_->commit();
}

}  // namespace host
