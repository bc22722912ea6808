#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/base/values.h"
#include "host/engine/request.h"
#include "host/input/machinemodel.h"
#include "host/input/requestreader.h"
#include "host/server/http.h"

namespace host {

// Answers, as the interface has them.

/// Of batches that were taken, or why they were not. `paths` are where they stand in the request.
Answer batchesAnswer(const MachineModel& machine, const CommandAnswer& answer,
                     const std::vector<const CommandBatch*>& batches, bool isDryRun,
                     std::int64_t endsMs);
/// Adds the members of a printed object.
void addMembers(Answer& answer, const std::string& object);
/// Of a request of stops alone.
Answer stopAnswer(const MachineModel& machine, const CommandAnswer& answer,
                  const std::vector<RequestedBatch>& batches);
/// Of a hold and a release.
Answer axesAnswer(const MachineModel& machine, const CommandAnswer& answer);
/// Why it was not done; the path is that of the field which it is about.
Answer denialAnswer(const MachineModel& machine, const Denial& denial, const std::string& path);

Json countsJson(const PointCounts& counts);
Json commanderJson(const MachineModel& machine, CommanderId id, const Enrolment& enrolment);

}  // namespace host
