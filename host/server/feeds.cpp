#include "host/server/feeds.h"

#include <fmt/format.h>

#include <cmath>
#include <cstring>
#include <iterator>
#include <nlohmann/json.hpp>
#include <numeric>
#include <utility>

#include "host/base/clocks.h"
#include "host/results/eventjson.h"

namespace host {
namespace {

/// As JSON has it, in the fewest digits that read back as the same number.
void appendValue(fmt::memory_buffer& text, const hal::DeviceAttrGeneric& attribute,
                 std::int32_t bits) {
  const auto end = std::back_inserter(text);
  if (attribute.typeCode != hal::floatTypeCode) {
    fmt::format_to(end, "{}", bits);
    return;
  }
  float value = 0.0F;
  std::memcpy(&value, &bits, sizeof value);
  if (std::isfinite(value)) {
    fmt::format_to(end, "{}", value);
  } else {
    fmt::format_to(end, "null");
  }
}

/// Lists of what many cycles have, one entry a cycle each.
struct CycleLists {
  fmt::memory_buffer numbers;
  fmt::memory_buffer times;
  fmt::memory_buffer values;
  std::size_t count = 0;

  void add(const CycleRing::Cycle& cycle, const std::vector<CycleRing::Column>& known,
           const std::vector<std::size_t>& columns) {
    const char* const comma = count++ > 0 ? "," : "";
    fmt::format_to(std::back_inserter(numbers), "{}{}", comma, cycle.number);
    fmt::format_to(std::back_inserter(times), "{}{}", comma, cycle.timeMs);
    fmt::format_to(std::back_inserter(values), "{}[", comma);
    for (std::size_t i = 0; i < columns.size(); ++i) {
      fmt::format_to(std::back_inserter(values), "{}", i > 0 ? "," : "");
      appendValue(values, *known[columns[i]].attribute, cycle.values[columns[i]]);
    }
    values.push_back(']');
  }
};

}  // namespace

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
    const std::uint64_t expected = cursor_.next;
    EventRing::Counts missed{};
    events_ = source_.ring.read(cursor_, missed);
    told_ = 0;
    const std::uint64_t first = cursor_.next - events_.size();
    if (first > expected) {
      return missedLine(first, missed, first - expected);
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

std::string EventFeed::missedLine(std::uint64_t first, const EventRing::Counts& missed,
                                  std::uint64_t all) const {
  Json counts = Json::object();
  for (std::size_t kind = 0; kind < missed.size(); ++kind) {
    if (missed[kind] > 0) {
      counts[kindName(static_cast<EventKind>(kind))] = missed[kind];
    }
  }
  const std::uint64_t known = std::accumulate(missed.begin(), missed.end(), std::uint64_t{0});
  if (known < all) {
    counts["unknown"] = all - known;
  }
  return printed({{"number", first},
                  {"kind", "missed"},
                  {"machine_ms", events_.empty() ? 0 : events_.front().timeMs},
                  {"missed", counts}},
                 -1);
}

LiveFeed::LiveFeed(LiveValues values, std::int64_t periodNs)
    : values_(std::move(values)), periodNs_(periodNs), dueNs_(bootNs()) {}

std::string LiveFeed::next() {
  const std::int64_t lateNs = bootNs() - dueNs_;
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

CycleFeed::CycleFeed(const CycleRing& ring, std::vector<std::size_t> columns, std::int64_t periodNs)
    : ring_(ring), columns_(std::move(columns)), periodNs_(periodNs), dueNs_(bootNs()) {}

std::string CycleFeed::beginning() const {
  Json keys = Json::array();
  for (const std::size_t column : columns_) {
    keys.push_back(ring_.columns()[column].key);
  }
  return printed({{"keys", std::move(keys)}}, -1);
}

std::string CycleFeed::next() {
  constexpr std::size_t mostValues = 16'384;
  if (!told_) {
    told_ = ring_.count();
    return beginning();
  }
  const std::int64_t nowNs = bootNs();
  const std::uint64_t latest = ring_.count();
  if (nowNs < dueNs_ || *told_ == latest) {
    return {};
  }
  std::uint64_t skipped = 0;
  CycleLists lists;
  CycleRing::Cycle cycle;
  while (*told_ < latest && lists.count * columns_.size() < mostValues) {
    if (ring_.read(*told_ + 1, cycle)) {
      lists.add(cycle, ring_.columns(), columns_);
      ++*told_;
    } else if (lists.count > 0) {
      break;  // what is missing here is told by the next message
    } else {
      skipped += ring_.oldest() - 1 - *told_;
      told_ = ring_.oldest() - 1;
    }
  }
  if (*told_ == latest) {
    dueNs_ = std::max(dueNs_ + periodNs_, nowNs);
  }
  return fmt::format(R"({{"cycles":[{}],"machine_ms":[{}],"skipped":{},"values":[{}]}})",
                     fmt::to_string(lists.numbers), fmt::to_string(lists.times), skipped,
                     fmt::to_string(lists.values));
}

}  // namespace host
