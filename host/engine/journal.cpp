#include "host/engine/journal.h"

namespace host {

void Journal::note(JournalEntry::Kind kind, std::int64_t atMs, int actuator, std::uint32_t number) {
  if (!isKept()) {
    return;
  }
  const bool joins = !entries_.empty() && entries_.back().kind == kind &&
                     entries_.back().atMs == atMs && entries_.back().number == number;
  if (!joins) {
    entries_.push_back({kind, atMs});
    entries_.back().number = number;
  }
  entries_.back().actuators.push_back(actuator);
}

void Journal::passOn(std::int64_t untilMs) {
  if (!isKept()) {
    return;
  }
  for (JournalKeeper* const keeper : keepers_) {
    for (const JournalEntry& entry : entries_) {
      keeper->note(entry);
    }
    keeper->noteUntil(untilMs);
  }
  entries_.clear();
}

}  // namespace host
