#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/input/machinemodel.h"
#include "host/input/requestreader.h"
#include "host/motion/plan.h"
#include "host/server/motionfolder.h"

namespace host {

/// Motion files that a client wants played.
struct MotionRequest : RequestSender {
  std::vector<CommandBatch> batches;
  /// In machine time from its begin on; refers to the batches.
  Plan plan;
  /// Machine time at which the approach begins, in milliseconds; none: as soon as they are taken.
  std::optional<std::int64_t> atMs;
};

/// Reads the JSON of such a request, and the texts of the files that come with it; without any,
/// those of the folder, which may be null. The machine stands where the motions begin. Throws
/// `UserError`, and `Refused` where a file is missing.
MotionRequest readMotionRequest(const std::string& text, const MachineModel& machine,
                                std::int64_t cycleMs, const MotionFolder* folder);

}  // namespace host
