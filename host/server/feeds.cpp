#include "host/server/feeds.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "host/engine/wallclock.h"
#include "host/server/eventjson.h"

namespace host {

EventFeed::EventFeed(const EventRing& ring, const MachineModel& machine,
                     const std::string& instance, std::optional<std::uint64_t> since)
    : ring_(ring), machine_(machine), cursor_(ring.cursorAt(since)) {
  begin_ = printed({{"number", cursor_.next}, {"kind", "begins"}, {"instance", instance}}, -1);
}

std::string EventFeed::next() {
  if (!begin_.empty()) {
    return std::exchange(begin_, {});
  }
  if (told_ == events_.size()) {
    EventRing::Counts missed{};
    events_ = ring_.read(cursor_, missed);
    told_ = 0;
    if (missed != EventRing::Counts{}) {
      return missedLine(missed);
    }
  }
  if (told_ == events_.size()) {
    return {};
  }
  const std::uint64_t number = cursor_.next - (events_.size() - told_);
  return eventLine(events_[told_++], number, machine_);
}

std::string EventFeed::missedLine(const EventRing::Counts& missed) const {
  Json counts = Json::object();
  for (std::size_t kind = 0; kind < missed.size(); ++kind) {
    if (missed[kind] > 0) {
      counts[kindName(static_cast<EventKind>(kind))] = missed[kind];
    }
  }
  return printed(
      {{"number", cursor_.next - events_.size()}, {"kind", "missed"}, {"missed", counts}}, -1);
}

LiveFeed::LiveFeed(LiveValues values, std::int64_t periodNs)
    : values_(std::move(values)), periodNs_(periodNs), dueNs_(wallNs()) {}

std::string LiveFeed::next() {
  const std::int64_t lateNs = wallNs() - dueNs_;
  if (lateNs < 0) {
    return {};
  }
  values_.look();
  if (values_.cycle().number == cycle_) {
    return {};
  }
  cycle_ = values_.cycle().number;
  const std::int64_t skipped = lateNs / periodNs_;
  dueNs_ += (skipped + 1) * periodNs_;
  return printed({{"cycle", cycle_},
                  {"machine_ms", values_.cycle().machineTimeMs},
                  {"skipped", skipped},
                  {"values", values_.json()}},
                 -1);
}

}  // namespace host
