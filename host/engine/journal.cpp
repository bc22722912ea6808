#include "host/engine/journal.h"

namespace host {

void Journal::note(JournalEntry&& entry) {
  if (isKept()) {
    spellOut();
    entries_.push_back(std::move(entry));
  }
}

/// Those that differ in their actuators alone become one.
void Journal::spellOut() {
  const Brief* previous = nullptr;
  for (const Brief& brief : brief_) {
    const bool joins = previous != nullptr && brief.kind != JournalEntry::Kind::write &&
                       brief.kind == previous->kind && brief.atMs == previous->atMs &&
                       brief.number == previous->number;
    if (!joins) {
      JournalEntry& entry = entries_.emplace_back();
      entry.kind = brief.kind;
      entry.atMs = brief.atMs;
      entry.number = brief.number;
      entry.bits = brief.bits;
    }
    entries_.back().actuators.push_back(brief.actuator);
    previous = &brief;
  }
  brief_.clear();
}

void Journal::passOn(std::int64_t untilMs) {
  if (!isKept()) {
    return;
  }
  spellOut();
  for (JournalKeeper* const keeper : keepers_) {
    for (const JournalEntry& entry : entries_) {
      keeper->note(entry);
    }
    keeper->noteUntil(untilMs);
  }
  entries_.clear();
}

}  // namespace host
