#include "host/recording/flightrecorder.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <system_error>
#include <utility>

#include "host/base/outputfile.h"
#include "host/base/outputpaths.h"
#include "host/base/usererror.h"
#include "host/engine/samplehistory.h"
#include "host/results/eventjson.h"

namespace host {
namespace {

constexpr std::uint64_t mostRowBytes = std::uint64_t{1} << 30;
constexpr std::size_t leastMessageBytes = std::size_t{1} << 20;
constexpr std::size_t mostMessageBytes = std::size_t{1} << 27;
/// Bytes that are kept for the events of each axis and second.
constexpr double messageBytes = 16 * 1024.0;

std::size_t rowLengthOf(const RecordingHead& head) {
  return rowTimes + head.columns.size() + head.attributes.size();
}

/// How many rows are kept: also those after the moment of a file, and while it is begun.
std::size_t rowsFor(const RingOptions& options, const RecordingHead& head) {
  const auto cycleMs = static_cast<double>(head.cycleMs);
  const double rows = (options.seconds * 1000.0 + RingFiles::afterMs) / cycleMs + 2.0;
  const auto rowBytes = static_cast<double>((rowLengthOf(head) + 1) * sizeof(double));
  if (rows * rowBytes > static_cast<double>(mostRowBytes)) {
    const double most = (static_cast<double>(mostRowBytes) / rowBytes - 2.0) * cycleMs / 1000.0 -
                        RingFiles::afterMs / 1000.0;
    throw simulation::Error(fmt::format(
        "--record-ring: {:g} s of {} values every {} ms need {:.1f} GiB, and at most 1 GiB is "
        "allowed; use at most {} s",
        options.seconds, rowLengthOf(head) - rowTimes, head.cycleMs,
        rows * rowBytes / static_cast<double>(mostRowBytes), std::max(0.0, std::floor(most))));
  }
  return static_cast<std::size_t>(rows);
}

std::size_t messageBytesFor(const RingOptions& options, const RecordingHead& head) {
  const double bytes = options.seconds * messageBytes * static_cast<double>(head.axes.size());
  return static_cast<std::size_t>(std::clamp(bytes, static_cast<double>(leastMessageBytes),
                                             static_cast<double>(mostMessageBytes)));
}

std::string madeFolder(const std::string& path) {
  checkFolder(path);
  std::error_code failed;
  std::filesystem::create_directories(path, failed);
  if (failed) {
    throw UserError(path, {}, "cannot be made: " + failed.message());
  }
  return path;
}

bool isTrigger(EventKind kind) {
  return kind == EventKind::stalled || kind == EventKind::starved || kind == EventKind::guarded ||
         kind == EventKind::external || kind == EventKind::held;
}

}  // namespace

/// One file on its way.
struct FlightRecorder::Writing {
  Writing(const FlightRecorder& from, const RingFiles::File& file)
      : rows(from.rows_),
        messages(from.messages_),
        head(*from.head_),
        output(from.files_.pathOf(file), OutputFile::Present::kept),
        endRow(rows.end()),
        endMessage(messages.end().number) {
    head.trigger = file.reason;
    head.triggerMs = file.triggerMs;
    head.leftOut = from.files_.leftOut();
    const auto firstMs = static_cast<double>(file.dueMs - from.keptMs_);
    for (nextRow = rows.begin(); nextRow < endRow && rows.timeMs(nextRow) < firstMs;) {
      ++nextRow;
    }
    findFirstMessage();
    topics.emplace(
        [this](const char* data, std::size_t count) {
          output.write(data, count);
          bytes += count;
        },
        head, from.machine_, from.attachments_);
  }

  void findFirstMessage() {
    const std::uint64_t first = nextRow > 0 && nextRow < endRow ? rows.mark(nextRow) : 0;
    nextMessage = messages.begin();
    lost = nextMessage.number - std::min(nextMessage.number, first);
    while (nextMessage.number < first) {
      messages.skip(nextMessage);
    }
  }

  /// And what came before it. False at the end of the file.
  bool writeRow() {
    const std::uint64_t oldest = std::min(rows.begin(), endRow);
    lostRows += oldest - std::min(oldest, nextRow);
    nextRow = std::max(nextRow, oldest);
    const bool isRow = nextRow < endRow;
    writeMessages(isRow ? rows.mark(nextRow) : endMessage);
    if (!isRow) {
      tellLost("dropped_rows", endMessage, lostRows);
      topics->finish();
      output.commit();
      return false;
    }
    rows.read(nextRow++, row);
    topics->addRow(row);
    return true;
  }

  /// Up to the one of this number.
  void writeMessages(std::uint64_t end) {
    const MessageRing::Place oldest = messages.begin();
    if (nextMessage.number < oldest.number) {
      lost += oldest.number - nextMessage.number;
      nextMessage = oldest;
    }
    tellLost("dropped_events", nextMessage.number - std::min(nextMessage.number, lost), lost);
    while (nextMessage.number < end) {
      messages.read(nextMessage, message);
      topics->addKept(message.channel, message.timeNs, message.data);
    }
  }

  /// With a number that none of the events in the file has: each message is one, so they have the
  /// same numbers.
  void tellLost(const char* kind, std::uint64_t number, std::uint64_t& count) {
    if (count > 0) {
      const std::uint64_t where = std::max(rows.begin(), std::min(nextRow, rows.end() - 1));
      topics->addDropped(kind, static_cast<std::int64_t>(rows.timeMs(where)),
                         std::exchange(count, 0), number);
    }
  }

  const RowRing& rows;
  const MessageRing& messages;
  RecordingHead head;
  OutputFile output;
  std::uint64_t bytes = 0;
  std::uint64_t nextRow = 0;
  const std::uint64_t endRow;
  MessageRing::Place nextMessage;
  const std::uint64_t endMessage;
  /// Messages and rows that made room too early, and are not told of yet.
  std::uint64_t lost = 0;
  std::uint64_t lostRows = 0;
  std::vector<double> row;
  MessageRing::Message message;
  std::optional<RecordingTopics> topics;
};

FlightRecorder::FlightRecorder(const RingOptions& options, const MachineModel& machine,
                               const RecordingHead& head)
    : keptMs_(static_cast<std::int64_t>(options.seconds * 1000.0)),
      machine_(machine),
      attachments_(filesOf(machine)),
      rows_(rowLengthOf(head), rowsFor(options, head)),
      messages_(messageBytesFor(options, head)),
      files_(madeFolder(options.folder), machine.name, keptMs_, options.mostFiles) {}

FlightRecorder::~FlightRecorder() = default;

RecordingTopics& FlightRecorder::begin(const RecordingHead& head) {
  head_ = &head;
  keeping_.emplace([](const char*, std::size_t) {}, head, machine_, attachments_);
  keeping_->keepIn([this](std::uint16_t channel, std::uint64_t timeNs, std::string_view data) {
    messages_.add(channel, timeNs, data);
  });
  return *keeping_;
}

void FlightRecorder::addRow(const std::vector<double>& row) {
  // More than come, so that none is overwritten before it is written.
  constexpr int rowsAtOnce = 4;
  rows_.add(row, messages_.end().number);
  latestMs_ = static_cast<std::int64_t>(row[0]);
  if (writing_ != nullptr) {
    write([left = rowsAtOnce]() mutable { return left-- > 0; });
  } else if (const auto file = files_.waiting(); file && latestMs_ >= file->untilMs()) {
    beginWriting(*file);
  }
}

void FlightRecorder::see(const Event& event) {
  if (isTrigger(event.kind)) {
    (void)files_.ask(kindName(event.kind), event.timeMs);
  }
}

void FlightRecorder::rest() {
  constexpr std::chrono::milliseconds atOnce(20);
  const auto now = [] { return std::chrono::steady_clock::now(); };
  if (writing_ != nullptr) {
    write([=, end = now() + atOnce] { return now() < end; });
  }
}

void FlightRecorder::finish() {
  files_.end();
  const auto always = [] { return true; };
  write(always);
  for (auto file = files_.waiting(); file; file = files_.waiting()) {
    beginWriting(*file);
    write(always);
  }
}

void FlightRecorder::beginWriting(const RingFiles::File& file) {
  files_.begin();
  try {
    writing_ = std::make_unique<Writing>(*this, file);
  } catch (const std::exception& error) {
    files_.done(0, error.what());
  }
}

template <typename GoesOn>
void FlightRecorder::write(GoesOn goesOn) {
  if (writing_ == nullptr) {
    return;
  }
  try {
    while (goesOn()) {
      if (!writing_->writeRow()) {
        files_.done(writing_->bytes, "");
        writing_.reset();
        return;
      }
    }
  } catch (const std::exception& error) {
    files_.done(0, error.what());
    writing_.reset();
  }
}

}  // namespace host
