#pragma once

#include <string>
#include <vector>

#include "host/engine/runresult.h"
#include "host/results/outcome.h"
#include "host/results/runoptions.h"

namespace host {

/// What was loaded, for standard output.
std::string loadedReport(const MachineModel& machine, const std::vector<CommandBatch>& batches,
                         const Schedule& schedule, const RunOptions& options,
                         bool replacedLeftover);

/// One of a batch's notes.
std::string noteLine(const std::string& note);

/// The cycle's figures and a row for each axis, for standard output. At most 80 columns wide
/// for names of up to 30 characters.
std::string runReport(const RunResult& result, const Outcome& outcome);

/// The words of the report, for `--help`.
extern const char* const reportWords;

}  // namespace host
