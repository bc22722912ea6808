#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/base/livevalues.h"
#include "host/engine/cyclering.h"
#include "host/engine/eventring.h"
#include "host/input/machinemodel.h"
#include "host/server/http.h"
#include "host/server/requestnumbers.h"

namespace host {

/// What events are told from.
struct EventSource {
  const EventRing& ring;
  const MachineModel& machine;
  const RequestNumbers& numbers;
  /// Of commanders, by their numbers.
  const std::map<std::uint32_t, std::string>& names;
};

/// What becomes of commands, an event a message.
class EventFeed : public Feed {
 public:
  /// From the event of this number on, or from now on. The first message is `begin`, with where
  /// it begins. `renew` is called for each message of the listener; it may be empty.
  EventFeed(const EventSource& source, Json begin, std::optional<std::uint64_t> since,
            std::function<void()> renew);

  std::string next() override;
  void take(const std::string& message) override;

 private:
  /// Before the event of the number `first`, so many were lost.
  [[nodiscard]] std::string missedLine(std::uint64_t first, const EventRing::Counts& missed,
                                       std::uint64_t all) const;

  const EventSource source_;
  const std::function<void()> renew_;
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

/// The values of every cycle, those of several in a message. A listener that is slow is told how
/// many cycles it missed.
class CycleFeed : public Feed {
 public:
  /// From the next cycle on. `columns` are positions in the ring, which must outlive the object.
  CycleFeed(const CycleRing& ring, std::vector<std::size_t> columns, std::int64_t periodNs);

  /// The first message is the keys.
  std::string next() override;

 private:
  [[nodiscard]] std::string beginning() const;

  const CycleRing& ring_;
  const std::vector<std::size_t> columns_;
  const std::int64_t periodNs_;
  std::int64_t dueNs_;
  /// The latest cycle that was told; none before the beginning.
  std::optional<std::uint64_t> told_;
};

}  // namespace host
