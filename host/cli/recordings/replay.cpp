#include "host/cli/recordings/replay.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/base/usererror.h"
#include "host/base/visible.h"
#include "host/engine/samplehistory.h"
#include "host/input/machinefile.h"
#include "host/recording/journaljson.h"

namespace host {
namespace {

struct Enough {};

/// So many cycles without a row need no explanation.
constexpr std::uint64_t fewMissing = 1000;
/// The library knows no longer one.
constexpr std::int64_t longestStepMs = 0x40000000;

std::uint64_t bitsOf(double value) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

bool isSame(double one, double other) {
  return bitsOf(one) == bitsOf(other);
}

/// The machine file names at most one other file, which lies before it.
MachineModel machineOf(const std::vector<McapAttachment>& files) {
  const std::string main = files.back().name;
  return readMachine(main, [&](const std::string& path) {
    return path == main ? files.back().data : files.front().data;
  });
}

}  // namespace

SessionOptions ReplayedMachine::session() const {
  SessionOptions session;
  session.clock = Clock::simulated;
  // The journal says how far each cycle goes.
  session.late = Late::catchUp;
  session.guard = head.guard;
  session.startTick = head.startTick;
  std::map<std::string, int> indexes;  // by the names as recordings have them
  for (const auto& [name, index] : actuatorIndexes(model)) {
    indexes.emplace(visible(name), index);
  }
  for (const RecordedAxis& axis : head.axes) {
    const auto found = indexes.find(axis.actuator.name);
    if (found != indexes.end()) {
      session.shownActuators.push_back(found->second);
    }
  }
  return session;
}

Plan ReplayedMachine::plan() const {
  Plan plan;
  plan.schedule.cycleMs = static_cast<std::uint32_t>(head.cycleMs);
  plan.schedule.approachMs = static_cast<std::uint32_t>(head.approachMs);
  return plan;
}

ReplayedMachine readReplayedMachine(const std::string& path) {
  ReplayedMachine machine;
  std::vector<McapAttachment> files;
  RecordedRun::Handler handler;
  handler.head = [&](const RecordingHead& head) { machine.head = head; };
  handler.file = [&](const McapAttachment& file) { files.push_back(file); };
  handler.row = [](const std::vector<double>&) { throw Enough(); };
  handler.journal = [](const Json&) { throw Enough(); };
  try {
    RecordedRun::read(path, handler);
  } catch (const Enough&) {
  }
  if (!machine.head.beginsAtStart()) {
    throw UserError(path, {},
                    "is a file of the ring and begins in the middle of a run, so it cannot be "
                    "replayed; record a whole run with --record");
  }
  if (!machine.head.journal) {
    throw UserError(path, {},
                    "has no journal, so it cannot be replayed; 'torvex run' and 'serve' write one "
                    "with --record");
  }
  if (*machine.head.journal != journalVersion) {
    throw UserError(path, {},
                    fmt::format("has a journal of version {}; this torvex replays version {}",
                                *machine.head.journal, journalVersion));
  }
  if (files.empty() || machine.head.cycleMs < 1) {
    throw UserError(path, {}, "does not have the description of its machine");
  }
  machine.model = machineOf(files);
  return machine;
}

Replay::Replay(const std::string& path, const ReplayedMachine& machine, Torvex& torvex)
    : path_(path), head_(machine.head), torvex_(torvex), parser_(machine.model) {
  std::vector<std::string> columns = torvex.columnNames();
  std::transform(columns.begin(), columns.end(), columns.begin(), visible);
  if (columns != head_.columns) {
    throw UserError(path, {}, "has other columns than its machine has with this version of torvex");
  }
  torvex.followJournal();
}

ReplayResult Replay::run(const GoesOn& goesOn) {
  goesOn_ = &goesOn;
  RecordedRun::Handler handler;
  handler.journal = [this](const Json& message) { take(message); };
  handler.row = [this](const std::vector<double>& row) { take(row); };
  handler.event = [this](const Json& event) { noteDropped(event); };
  handler.fault = [](const std::string& fault) { throw End{fault}; };
  try {
    result_.faults = RecordedRun::read(path_, handler).end.faults;
  } catch (const End& end) {
    if (!end.fault.empty()) {
      result_.faults.push_back(end.fault);
    }
  }
  if (hasBegun_) {
    torvex_.endReplay();
  }
  result_.lastMs = torvex_.engine().timeMs();
  return result_;
}

void Replay::take(const Json& message) {
  if (message.at("number") != Json(expected_++)) {
    throw End{"a part of the journal is missing"};
  }
  std::optional<JournalEntry> entry = parser_.take(message);
  if (!entry) {
    return;
  }
  if (entry->kind == JournalEntry::Kind::gap) {
    throw End{fmt::format("the journal could not be kept after machine time {} ms", entry->atMs)};
  }
  if (entry->kind == JournalEntry::Kind::nodes) {
    nodes_ = std::move(entry->numbers);
  } else {
    const std::pair when(entry->atMs, entry->isFoundByCycle);
    pending_.emplace(when, std::move(*entry));
  }
}

/// Each event that is missing may have told of one row.
void Replay::noteDropped(const Json& event) {
  const bool isOfRows = event.at("kind") == "dropped_rows" && event.at("output") == "recording";
  if (isOfRows || event.at("kind") == "dropped_events") {
    dropped_ += event.at("count").get<std::uint64_t>();
  }
}

void Replay::take(const std::vector<double>& row) {
  if (!std::exchange(hasBegun_, true)) {
    torvex_.beginReplay(nodes_);
  }
  const auto timeMs = static_cast<std::int64_t>(row[0]);
  for (std::uint64_t missing = 0; torvex_.engine().timeMs() < timeMs; ++missing) {
    if (missing > fewMissing && missing - fewMissing > dropped_) {
      throw End{fmt::format(
          "more rows are missing before machine time {} ms than the recording reports", timeMs)};
    }
    step();
  }
  if (torvex_.engine().timeMs() != timeMs) {
    throw End{fmt::format("the row of machine time {} ms belongs to no cycle", timeMs)};
  }
  compare(row);
}

/// What was done before the cycle, in this order; what the cycle itself found comes last.
void Replay::step() {
  const std::int64_t nowMs = torvex_.engine().timeMs();
  std::int64_t nextMs = nowMs + head_.cycleMs;
  std::vector<JournalEntry> entries;
  while (!pending_.empty() && pending_.begin()->first.first <= nowMs) {
    const JournalEntry& entry =
        entries.emplace_back(std::move(pending_.extract(pending_.begin()).mapped()));
    if (entry.kind == JournalEntry::Kind::cycle && entry.atMs == nowMs) {
      nextMs = entry.timeMs;
    }
  }
  const std::int64_t stepMs = nextMs - nowMs;
  if (stepMs <= 0 || stepMs > longestStepMs || stepMs % head_.cycleMs != 0) {
    throw End{fmt::format("the cycle after machine time {} ms is invalid", nowMs)};
  }
  if (!(*goesOn_)(nextMs)) {
    throw End{};
  }
  if (!torvex_.replayCycle(entries, nextMs)) {
    throw End{fmt::format("the machine does not reach machine time {} ms", nextMs)};
  }
  ++result_.cycles;
}

void Replay::compare(const std::vector<double>& row) {
  const std::vector<double>& replayed = torvex_.latestRow();
  ++result_.compared;
  for (std::size_t i = 0; i < head_.columns.size(); ++i) {
    const std::size_t position = rowTimes + i;
    if (!isSame(row[position], replayed[position])) {
      ++result_.different;
      if (!result_.first) {
        result_.first = {static_cast<std::int64_t>(row[0]), head_.columns[i], row[position],
                         replayed[position]};
      }
      return;
    }
  }
}

}  // namespace host
