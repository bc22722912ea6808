// What a streamer notes for a journal beside its own work, and how it does again what one says.

#include <algorithm>
#include <mutex>
#include <set>
#include <utility>

#include "host/engine/streamer.h"

namespace host {
namespace {

/// Of some passes, where many axes are written in every cycle.
constexpr std::size_t mostWrites = std::size_t{1} << 15;

}  // namespace

void Streamer::keepWrites() {
  irregular_.reserve(CycleLog::most);
  writes_.reserve(mostWrites);
  cycles_.writes.reserve(mostWrites);
}

/// What the cycle left since the latest pass.
void Streamer::noteCycles() {
  if (!journal_.isKept()) {
    return;
  }
  irregular_.clear();
  bool isComplete = true;
  {
    const std::lock_guard hold(gate_);
    const CycleLog& log = cycles_.log;
    isComplete = nextNoted_ >= log.oldest() && std::exchange(cycles_.lostWrites, 0) == 0;
    for (std::uint64_t i = std::max(nextNoted_, log.oldest()); i < log.count(); ++i) {
      const Cycle& cycle = log.at(i);
      if (cycle.timeMs - cycle.previousMs != cycleMs_) {
        irregular_.push_back(cycle);
      }
    }
    nextNoted_ = log.count();
    std::swap(writes_, cycles_.writes);
  }
  if (!isComplete) {
    journal_.note({JournalEntry::Kind::gap, latestMs_});
  }
  for (const Cycle& cycle : irregular_) {
    JournalEntry entry{JournalEntry::Kind::cycle, cycle.previousMs};
    entry.timeMs = cycle.timeMs;
    journal_.note(std::move(entry));
  }
  for (const ForeignWrite& write : writes_) {
    JournalEntry entry{JournalEntry::Kind::write, write.previousMs, {write.actuator}};
    entry.bits = write.bits;
    entry.isFoundByCycle = true;
    journal_.note(std::move(entry));
  }
  writes_.clear();
}

void Streamer::follow(const JournalEntry& entry) {
  using Kind = JournalEntry::Kind;
  if (entry.kind == Kind::batch) {
    followed_ = {entry.batch, entry.number};
    return;
  }
  if (entry.kind == Kind::take) {
    followTake(entry);
    return;
  }
  if (entry.kind == Kind::stop) {
    stop(entry.actuators, entry.number, false);
    return;
  }
  for (const int actuator : entry.actuators) {
    Axis& axis = axes_[static_cast<std::size_t>(actuator)];
    const std::lock_guard hold(gate_);
    timelines_.look(axis);
    if (entry.kind == Kind::moved) {
      timelines_.takeUp(axis);
    } else if (entry.kind == Kind::clear) {
      timelines_.clear(axis);
    } else if (entry.kind == Kind::freed) {
      axis.guard.heldSinceMs = GuardRecord::never;
    } else if (entry.kind == Kind::write) {
      followWrite(axis, entry.bits);
    }
  }
}

/// Whatever speaks against it did not when it was recorded.
void Streamer::followTake(const JournalEntry& entry) {
  latestMs_ = seeLatest();
  const std::set<int> takers(entry.actuators.begin(), entry.actuators.end());
  Columns taken;
  for (const Column& column : columnsOf(followed_)) {
    if (takers.count(column.axis.index) > 0) {
      column.axis.counts.points += column.points.size();
      taken.push_back(column);
    }
  }
  if (!followed_.batch.commands->isStop) {
    static_cast<void>(findFault(taken, followed_, {}));
  }
  takeOn(taken, followed_);
}

void Streamer::followWrite(Axis& axis, std::int32_t bits) {
  hal::DeviceAttrGeneric& attribute = *axis.timeline->deviceAttr;
  hal::AttrGeneric record;
  __atomic_load(&attribute.value, &record, __ATOMIC_RELAXED);
  record.asInt = bits;
  __atomic_store(&attribute.value, &record, __ATOMIC_RELEASE);
}

}  // namespace host
