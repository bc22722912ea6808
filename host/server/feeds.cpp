#include "host/server/feeds.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "host/engine/wallclock.h"
#include "host/server/eventjson.h"

namespace host {

EventFeed::EventFeed(const EventSource& source, Json begin, std::optional<std::uint64_t> since,
                     std::function<void()> renew)
    : source_(source), renew_(std::move(renew)), cursor_(source.ring.cursorAt(since)) {
  begin["number"] = cursor_.next;
  begin_ = printed(begin, -1);
}

void EventFeed::take(const std::string& /*message*/) {
  if (renew_) {
    renew_();
  }
}

std::string EventFeed::next() {
  if (!begin_.empty()) {
    return std::exchange(begin_, {});
  }
  if (told_ == events_.size()) {
    EventRing::Counts missed{};
    events_ = source_.ring.read(cursor_, missed);
    told_ = 0;
    if (missed != EventRing::Counts{}) {
      return missedLine(missed);
    }
  }
  if (told_ == events_.size()) {
    return {};
  }
  const std::uint64_t number = cursor_.next - (events_.size() - told_);
  const Event& event = events_[told_++];
  const auto name = source_.names.find(event.commander);
  const EventContext context{number, source_.numbers.requestOf(event.batch),
                             name == source_.names.end() ? "" : name->second};
  return eventLine(event, context, source_.machine);
}

std::string EventFeed::missedLine(const EventRing::Counts& missed) const {
  Json counts = Json::object();
  for (std::size_t kind = 0; kind < missed.size(); ++kind) {
    if (missed[kind] > 0) {
      counts[kindName(static_cast<EventKind>(kind))] = missed[kind];
    }
  }
  return printed({{"number", cursor_.next - events_.size()},
                  {"kind", "missed"},
                  {"machine_ms", events_.empty() ? 0 : events_.front().timeMs},
                  {"missed", counts}},
                 -1);
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
