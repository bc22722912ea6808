#pragma once

#include <cstdint>
#include <vector>

#include "host/base/values.h"
#include "host/engine/journal.h"
#include "host/input/machinemodel.h"

namespace host {

/// Of the entries, as they are written and read here.
constexpr std::uint32_t journalVersion = 1;
extern const char* const journalSchema;

/// An entry as messages: several for a batch of many points. All numbers are exact.
std::vector<Json> journalMessages(const JournalEntry& entry, const MachineModel& machine);

}  // namespace host
