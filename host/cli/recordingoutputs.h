#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/base/outputpaths.h"
#include "host/cli/arguments.h"
#include "host/engine/torvex.h"
#include "host/input/machinemodel.h"
#include "host/motion/plan.h"
#include "host/recording/flightrecorder.h"
#include "host/recording/recorder.h"
#include "host/results/runoptions.h"

namespace host {

void addRecord(CLI::App& command, RecordOptions& options);

/// Adds the file, if there is to be one. Throws `simulation::Error` for what needs one.
void addOutput(const RecordOptions& options, std::vector<NamedOutput>& outputs);

/// What is recorded of a run.
struct Recordings {
  std::optional<Recorder> whole;
  std::optional<Recorder> latest;
  /// What `latest` keeps its rows in; null without it.
  FlightRecorder* ring = nullptr;
};

/// Has a run recorded that is about to begin, where that is wanted. Throws `UserError` and
/// `simulation::Error` for what cannot be recorded. `failed` is told by another thread.
void record(
    const RecordOptions& options, const std::string& title, const MachineModel& machine,
    const Plan& plan, Torvex& torvex, Recordings& recordings,
    const Recorder::Failed& failed = [](const std::string&) {});

}  // namespace host
