#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/base/values.h"
#include "host/input/machinemodel.h"
#include "host/motion/event.h"

namespace host {

/// As the interface names them.
const char* kindName(EventKind kind);
const char* reasonName(Fault fault);

/// How an event is told beside what it says itself.
struct EventContext {
  std::uint64_t number = 0;
  /// That of its batch, where requests are counted.
  std::optional<std::uint32_t> request;
  /// The name of its commander; empty where it is not known.
  std::string name;
};

Json eventJson(const Event& event, const EventContext& context, const MachineModel& machine);
/// The same on one line.
std::string eventLine(const Event& event, const EventContext& context, const MachineModel& machine);

}  // namespace host
