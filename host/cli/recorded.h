#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/base/outputpaths.h"
#include "host/cli/options.h"
#include "host/engine/torvex.h"
#include "host/input/machinemodel.h"
#include "host/motion/plan.h"
#include "host/recording/recorder.h"

namespace host {

void addRecord(CLI::App& command, RecordOptions& options);

/// Adds the file, if there is to be one. Throws `simulation::Error` for what needs one.
void addOutput(const RecordOptions& options, std::vector<NamedOutput>& outputs);

/// Has a run recorded that is about to begin. Throws `UserError` for what cannot be recorded.
/// `failed` is told by another thread.
void record(
    const RecordOptions& options, const std::string& title, const MachineModel& machine,
    const Plan& plan, Torvex& torvex, std::optional<Recorder>& recorder,
    Recorder::Failed failed = [](const std::string&) {});

}  // namespace host
