#pragma once

#include <cstdint>
#include <string>

#include "host/base/values.h"
#include "host/input/machinemodel.h"
#include "host/motion/event.h"

namespace host {

/// As the interface names them.
const char* kindName(EventKind kind);
const char* reasonName(Fault fault);

/// An event of this number, on one line; `request` is that of its batch.
std::string eventLine(const Event& event, std::uint64_t number, std::uint32_t request,
                      const MachineModel& machine);

}  // namespace host
