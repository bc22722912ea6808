#include "host/recording/recorder.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <limits>
#include <mutex>
#include <utility>

#include "host/engine/samplehistory.h"

namespace host {
namespace {

/// More that wait are dropped.
constexpr std::size_t mostEvents = std::size_t{1} << 16;
/// As many as a picture draws.
constexpr std::uint64_t mostPointsTold = 400;

std::uint64_t nsSince1970() {
  const auto since = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(since / std::chrono::nanoseconds(1));
}

bool isAboutPoints(EventKind kind) {
  return kind == EventKind::reached || kind == EventKind::cleared || kind == EventKind::limited;
}

}  // namespace

Recorder::Recorder(const std::string& path, const MachineModel& machine, RecordingHead head,
                   Failed failed)
    : file_(path),
      machine_(machine),
      head_(std::move(head)),
      failed_(std::move(failed)),
      rows_(rowTimes + head_.columns.size() + head_.attributes.size()),
      files_(filesOf(machine)) {
  writer_ = std::thread([this] {
    try {
      write();
    } catch (const std::exception& error) {
      failure_ = std::current_exception();
      rows_.close();
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
  if (told_.size() >= mostEvents) {
    ++droppedEvents_;
    return;
  }
  told_.push_back({event, {points, points + count}});
}

void Recorder::write() {
  using namespace std::chrono_literals;
  std::vector<double> row;
  for (bool open = true; open;) {
    open = !closing_;
    writeQueued(row);
    if (open) {
      // The first row says what time it is.
      std::this_thread::sleep_for(topics_ ? 10ms : 1ms);
    }
  }
  if (!topics_) {
    begin(0.0);
  }
  writeEvents(std::numeric_limits<double>::infinity());
  noteDropped(row.empty() ? 0.0 : row[0]);
  topics_->finish();
}

void Recorder::writeQueued(std::vector<double>& row) {
  while (rows_.pop(row)) {
    if (!topics_) {
      begin(row[0]);
    }
    // In simulated time, the same ones each time.
    writeEvents(row[0]);
    noteDropped(row[0]);
    topics_->addRow(row);
  }
}

void Recorder::begin(double firstMs) {
  if (!head_.isSimulated) {
    head_.originNs = nsSince1970() - static_cast<std::uint64_t>(std::max(firstMs, 0.0) * 1e6);
  }
  topics_.emplace([this](const char* bytes, std::size_t count) { file_.write(bytes, count); },
                  head_, machine_, files_);
  file_.appear();
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
  }
}

void Recorder::noteDropped(double timeMs) {
  const auto machineMs = static_cast<std::int64_t>(timeMs);
  const std::uint64_t rows = rows_.dropped();
  if (rows > droppedNoted_) {
    topics_->addDropped("dropped_rows", machineMs, rows - droppedNoted_);
    droppedNoted_ = rows;
  }
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
  file_.commit();
}

}  // namespace host
