#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/base/livevalues.h"
#include "host/engine/eventring.h"
#include "host/input/machinemodel.h"
#include "host/server/http.h"

namespace host {

/// What becomes of commands, an event a message.
class EventFeed : public Feed {
 public:
  /// From the event of this number on, or from now on; the first message says where it begins.
  EventFeed(const EventRing& ring, const MachineModel& machine, const std::string& instance,
            std::optional<std::uint64_t> since);

  std::string next() override;

 private:
  [[nodiscard]] std::string missedLine(const EventRing::Counts& missed) const;

  const EventRing& ring_;
  const MachineModel& machine_;
  EventRing::Cursor cursor_;
  std::string begin_;
  /// Read and not told yet, from this one on.
  std::vector<Event> events_;
  std::size_t told_ = 0;
};

/// Values at a rate. A listener that is slow gets the newest.
class LiveFeed : public Feed {
 public:
  LiveFeed(LiveValues values, std::int64_t periodNs);

  std::string next() override;

 private:
  LiveValues values_;
  const std::int64_t periodNs_;
  std::int64_t dueNs_;
  std::uint64_t cycle_ = 0;
};

}  // namespace host
