#include "host/engine/commanders.h"

#include <algorithm>
#include <utility>

namespace host {

const Commanders::Commander* Commanders::find(CommanderId id) const {
  const auto found = commanders_.find(id);
  return found == commanders_.end() ? nullptr : &found->second;
}

std::optional<Commanders::Owned> Commanders::obstacleTo(const Enrolment& enrolment) const {
  for (const int actuator : enrolment.axes) {
    const Commander* const owner = find(ownerOf(actuator));
    if (owner != nullptr && owner->enrolment.priority >= enrolment.priority) {
      return Owned{actuator, owner->id};
    }
  }
  return std::nullopt;
}

CommanderId Commanders::enrol(Enrolment enrolment, std::int64_t nowMs, std::vector<Owned>& losses) {
  const CommanderId id = ++latest_;
  for (const int actuator : enrolment.axes) {
    CommanderId& owner = owners_[static_cast<std::size_t>(actuator)];
    if (owner != nobody) {
      losses.push_back({actuator, owner});
      std::vector<int>& axes = commanders_.at(owner).enrolment.axes;
      axes.erase(std::find(axes.begin(), axes.end(), actuator));
    }
    owner = id;
  }
  commanders_[id] = {id, std::move(enrolment), nowMs};
  return id;
}

bool Commanders::renew(CommanderId id, std::int64_t nowMs, std::optional<std::int64_t> leaseMs) {
  const auto found = commanders_.find(id);
  if (found == commanders_.end()) {
    return false;
  }
  found->second.renewedMs = nowMs;
  if (leaseMs) {
    found->second.enrolment.leaseMs = leaseMs;
  }
  return true;
}

Commanders::Commander Commanders::remove(CommanderId id) {
  Commander removed = std::move(commanders_.at(id));
  commanders_.erase(id);
  for (const int actuator : removed.enrolment.axes) {
    owners_[static_cast<std::size_t>(actuator)] = nobody;
  }
  return removed;
}

bool Commanders::hasLeases() const {
  return std::any_of(commanders_.begin(), commanders_.end(),
                     [](const auto& each) { return each.second.enrolment.leaseMs.has_value(); });
}

std::vector<CommanderId> Commanders::expired(std::int64_t nowMs) const {
  std::vector<CommanderId> expired;
  for (const auto& [id, commander] : commanders_) {
    const std::optional<std::int64_t>& leaseMs = commander.enrolment.leaseMs;
    if (leaseMs && nowMs - commander.renewedMs > *leaseMs) {
      expired.push_back(id);
    }
  }
  return expired;
}

bool LeaseClock::advance(std::int64_t nowMs, std::uint64_t readStall) {
  if (nowMs - latestMs_.value_or(nowMs) > stallMs_) {
    ++stall_;
    stalledUntilMs_ = nowMs;
  }
  latestMs_ = nowMs;
  return stall_ <= readStall || nowMs - stalledUntilMs_ >= longestWaitMs;
}

}  // namespace host
