#include "host/engine/ledger.h"

#include <algorithm>

namespace host {

void Ledger::expect(std::uint32_t batch, CommanderId commander, std::uint64_t points,
                    std::uint64_t stored) {
  if (points == 0) {
    return;
  }
  batches_[batch] = {commander, points, stored};
  Account& account = accounts_[commander];
  account.counts.points += points;
  account.waiting += stored;
  waiting_ += stored;
}

void Ledger::tell(const Event& event, const Point* /*points*/) {
  const auto found = batches_.find(event.batch);
  if (found == batches_.end()) {
    return;
  }
  Account& account = accounts_[found->second.commander];
  switch (event.kind) {
    case EventKind::late:
      account.counts.late += event.count;
      return;
    case EventKind::limited:
      account.counts.limited += event.rounds;
      return;
    case EventKind::reached:
      account.counts.reached += event.count;
      break;
    case EventKind::cleared:
      account.counts.cleared += event.count;
      break;
    case EventKind::refused:
      account.counts.refused += event.count;
      break;
    default:
      return;
  }
  settle(event.batch, found->second, account, event.count);
}

void Ledger::settle(std::uint32_t number, Batch& batch, Account& account, std::uint64_t points) {
  batch.left -= points;
  const std::uint64_t stored = std::min(batch.stored, batch.left);
  waiting_ -= batch.stored - stored;
  account.waiting -= batch.stored - stored;
  batch.stored = stored;
  const CommanderId commander = batch.commander;
  if (batch.left == 0) {
    batches_.erase(number);
  }
  if (account.isGone && account.counts.left() == 0) {
    accounts_.erase(commander);
  }
}

void Ledger::forget(CommanderId commander) {
  const auto found = accounts_.find(commander);
  if (found == accounts_.end()) {
    return;
  }
  found->second.isGone = true;
  if (found->second.counts.left() == 0) {
    accounts_.erase(found);
  }
}

std::uint64_t Ledger::waitingOf(CommanderId commander) const {
  const auto found = accounts_.find(commander);
  return found == accounts_.end() ? 0 : found->second.waiting;
}

PointCounts Ledger::countsOf(CommanderId commander) const {
  const auto found = accounts_.find(commander);
  return found == accounts_.end() ? PointCounts() : found->second.counts;
}

}  // namespace host
