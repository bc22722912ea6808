#include "host/cli/runoutputs.h"

#include <fmt/format.h>

#include <exception>
#include <filesystem>
#include <set>
#include <string>
#include <utility>

#include "host/base/outputpaths.h"
#include "host/base/usererror.h"
#include "host/cli/ringwatch.h"
#include "host/results/findings.h"

namespace host {
namespace {

std::string titleOf(const MachineModel& machine, const RunOptions& options) {
  std::vector<std::string> motions;
  for (const std::string& path : options.motionPaths) {
    motions.push_back(std::filesystem::path(path).filename().string());
  }
  return fmt::format("{}: {}", machine.name, fmt::join(motions, ", "));
}

std::uint64_t noteDropped(const char* output, const RowQueue& rows, Outcome& outcome) {
  if (rows.dropped() > 0) {
    outcome.warnings.push_back(droppedRowsFinding(output, rows.dropped()));
  }
  return rows.dropped();
}

void append(std::vector<Finding>& all, const std::vector<Finding>& more) {
  all.insert(all.end(), more.begin(), more.end());
}

}  // namespace

bool leavesStandardOutput(const RunOptions& options) {
  return isStandardOutput(options.tracePath) || isStandardOutput(options.plotPath) ||
         isStandardOutput(options.recording.path);
}

NamedFiles filesOf(const RunOptions& options, const MachineModel& machine,
                   const std::vector<CommandBatch>& batches) {
  std::set<std::string> read(machine.paths.begin(), machine.paths.end());
  for (const CommandBatch& batch : batches) {
    read.insert({batch.path, batch.pointsPath});
  }
  NamedFiles files{{}, {read.begin(), read.end()}};
  std::vector<NamedOutput>& outputs = files.outputs;
  if (!options.tracePath.empty()) {
    outputs.push_back({options.tracePath, "trace"});
  }
  addOutput(options.recording, outputs);
  if (!options.plotPath.empty()) {
    outputs.push_back({options.plotPath, "picture"});
  }
  for (const PreferenceExport& wanted : options.exports) {
    checkExport(machine, wanted, options.session.preferenceDirectory);
    outputs.push_back({wanted.pathIn(options.session.preferenceDirectory),
                       "preference file of " + wanted.container});
  }
  return files;
}

void checkFiles(const RunOptions& options, const NamedFiles& files) {
  checkOutputs(files.outputs, files.inputs);
  if (options.json && leavesStandardOutput(options)) {
    throw UserError("/dev/stdout", {},
                    "is used for the JSON object; name a file, or leave out --json");
  }
}

void openOutputs(const RunOptions& options, const MachineModel& machine, const Plan& plan,
                 Torvex& torvex, RunOutputs& outputs) {
  if (!options.tracePath.empty()) {
    outputs.trace.emplace(options.tracePath, torvex.columnNames(), [&](const std::string& column) {
      return isChosen(options.picture.joints, nameOfColumn(column));
    });
    torvex.addRows(outputs.trace->rows(), "trace");
  }
  record(options.recording, titleOf(machine, options), machine, plan, torvex, outputs.recordings);
  if (!options.plotPath.empty()) {
    outputs.plot.emplace(options.plotPath, titleOf(machine, options), plan, options.picture);
  }
}

void finishOutputs(const RunOptions& options, RunOutputs& outputs, const RunResult& result,
                   const RunLog& log, Outcome& outcome) {
  const auto attempt = [&](const char* what, const auto& action) {
    try {
      action();
    } catch (const std::exception& error) {
      Finding failure;
      failure.text = fmt::format("the {} was not written: {}", what, error.what());
      outcome.errors.push_back(std::move(failure));
    }
  };
  if (outputs.trace) {
    attempt("trace", [&] { outputs.trace->finish(); });
    outcome.droppedTraceRows = noteDropped("trace", outputs.trace->rows(), outcome);
  }
  if (auto& recorder = outputs.recordings.whole) {
    attempt("recording", [&] { recorder->finish(); });
    outcome.droppedRecordingRows = noteDropped("recording", recorder->rows(), outcome);
  }
  if (auto& recorder = outputs.recordings.latest) {
    attempt("ring", [&] { recorder->finish(); });
    outcome.droppedRingRows = noteDropped("ring", recorder->rows(), outcome);
    const RingFiles& files = outputs.recordings.ring->files();
    outcome.ringFiles = ringPaths(files);
    outcome.ringLeftOut = files.leftOut();
    append(outcome.warnings, ringFaults(files));
    append(outcome.warnings, ringLeftOut(files));
  }
  if (outputs.plot) {
    attempt("picture", [&] { outputs.plot->draw(result, log); });
  }
  for (const PreferenceExport& wanted : options.exports) {
    attempt("export", [&] {
      outcome.exports.push_back(exportPreferences(wanted, options.session.preferenceDirectory));
    });
  }
}

}  // namespace host
