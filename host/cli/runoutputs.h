#pragma once

#include <optional>
#include <vector>

#include "host/base/outputpaths.h"
#include "host/cli/recordingoutputs.h"
#include "host/engine/torvex.h"
#include "host/engine/trace.h"
#include "host/input/machinefile.h"
#include "host/motion/plan.h"
#include "host/results/plot/plot.h"
#include "host/results/report.h"
#include "host/results/runlog.h"

namespace host {

/// What a run leaves behind.
struct RunOutputs {
  std::optional<Trace> trace;
  Recordings recordings;
  std::optional<Plot> plot;
};

/// Whether standard output is that of a file, so that the report has to go elsewhere.
bool leavesStandardOutput(const RunOptions& options);

/// Of a run without a door. Throws `simulation::Error` for what cannot be exported.
NamedFiles filesOf(const RunOptions& options, const MachineModel& machine,
                   const std::vector<CommandBatch>& batches);

/// Throws `UserError` where outputs would overwrite each other, or what is read.
void checkFiles(const RunOptions& options, const NamedFiles& files);

/// Before anything moves. Throws when one of them cannot be written.
void openOutputs(const RunOptions& options, const MachineModel& machine, const Plan& plan,
                 Torvex& torvex, RunOutputs& outputs);

/// Writes what is still to be written; what fails is an error of the outcome.
void finishOutputs(const RunOptions& options, RunOutputs& outputs, const RunResult& result,
                   const RunLog& log, Outcome& outcome);

}  // namespace host
