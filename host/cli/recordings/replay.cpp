#include "host/cli/recordings/replay.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/base/usererror.h"
#include "host/engine/samplehistory.h"
#include "host/input/machinefile.h"
#include "host/recording/journaljson.h"

namespace host {
namespace {

struct Enough {};

bool isSame(double one, double other) {
  return std::memcmp(&one, &other, sizeof one) == 0;
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
  session.poolName.clear();
  const std::map<std::string, int> indexes = actuatorIndexes(model);
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
                    "is of a ring and begins in the midst of a run, so it cannot be replayed; "
                    "record all of a run with --record");
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
    throw UserError(path, {}, "does not hold the description of its machine");
  }
  machine.model = machineOf(files);
  return machine;
}

Replay::Replay(const std::string& path, const ReplayedMachine& machine, Torvex& torvex)
    : path_(path), head_(machine.head), torvex_(torvex), parser_(machine.model) {
  std::vector<std::string> columns;
  for (const TracedColumn& column : torvex.columns()) {
    columns.push_back(column.name);
  }
  if (columns != head_.columns) {
    throw UserError(path, {}, "has other columns than its machine would have with this torvex");
  }
  torvex.followJournal();
}

ReplayResult Replay::run(const GoesOn& goesOn) {
  goesOn_ = &goesOn;
  RecordedRun::Handler handler;
  handler.journal = [this](const Json& message) { take(message); };
  handler.row = [this](const std::vector<double>& row) { take(row); };
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
  if (message.at("number").get<std::uint64_t>() != expected_++) {
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
    pending_.push_back(std::move(*entry));
  }
}

void Replay::take(const std::vector<double>& row) {
  if (!std::exchange(hasBegun_, true)) {
    torvex_.beginReplay(nodes_);
  }
  const auto timeMs = static_cast<std::int64_t>(row[0]);
  while (torvex_.engine().timeMs() < timeMs) {
    step();
  }
  if (torvex_.engine().timeMs() != timeMs) {
    throw End{fmt::format("the row of machine time {} ms is of no cycle", timeMs)};
  }
  compare(row);
}

/// What was done before the cycle, in this order; what the cycle itself found comes last.
void Replay::step() {
  const std::int64_t nowMs = torvex_.engine().timeMs();
  std::int64_t nextMs = nowMs + head_.cycleMs;
  const auto later =
      std::stable_partition(pending_.begin(), pending_.end(),
                            [&](const JournalEntry& entry) { return entry.atMs <= nowMs; });
  std::vector<JournalEntry> entries(std::move_iterator(pending_.begin()),
                                    std::move_iterator(later));
  pending_.erase(pending_.begin(), later);
  std::stable_sort(entries.begin(), entries.end(),
                   [](const JournalEntry& one, const JournalEntry& other) {
                     return std::pair(one.atMs, one.isFoundByCycle) <
                            std::pair(other.atMs, other.isFoundByCycle);
                   });
  for (const JournalEntry& entry : entries) {
    if (entry.kind == JournalEntry::Kind::cycle && entry.atMs == nowMs) {
      nextMs = entry.timeMs;
    }
  }
  if (nextMs <= nowMs || (nextMs - nowMs) % head_.cycleMs != 0) {
    throw End{fmt::format("the cycle after machine time {} ms is not as it can be", nowMs)};
  }
  if (!(*goesOn_)(nextMs)) {
    throw End{};
  }
  torvex_.replayCycle(entries, nextMs);
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
