#include "host/cli/servecommand.h"

#include <fmt/format.h>

#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/base/outputpaths.h"
#include "host/base/readiness.h"
#include "host/base/stopsignal.h"
#include "host/base/usersignal.h"
#include "host/base/visible.h"
#include "host/cli/opendoor.h"
#include "host/cli/options.h"
#include "host/cli/output.h"
#include "host/cli/poolname.h"
#include "host/cli/recordingoutputs.h"
#include "host/cli/ringwatch.h"
#include "host/cli/status.h"
#include "host/engine/torvex.h"
#include "host/engine/trace.h"
#include "host/input/machinefile.h"
#include "host/results/outcome.h"

namespace host {
namespace {

struct ServeOptions {
  std::string machinePath;
  std::uint32_t cycleMs = 10;
  SessionOptions session;
  /// Empty: no trace.
  std::string tracePath;
  RecordOptions recording;
  DoorOptions door;
};

void announce(const ServeOptions& options, OpenDoor& door) {
  for (const std::string& refused : prepareRealtime(options.session.cycleScheduling)) {
    complain("torvex: warning: " + refused + "\n");
  }
  say(fmt::format("{}, a cycle every {} ms\n{}", visible(options.machinePath), options.cycleMs,
                  door.announcement()));
}

/// Throws `UserError` where outputs would overwrite each other, or what is read.
NamedFiles checkedFiles(const ServeOptions& options, const MachineModel& machine) {
  NamedFiles files{{}, machine.paths};
  if (!options.tracePath.empty()) {
    files.outputs.push_back({options.tracePath, "trace"});
  }
  addOutput(options.recording, files.outputs);
  addFiles(options.door, machine.name, files);
  checkOutputs(files.outputs, files.inputs);
  return files;
}

void sayDropped(const char* output, const RowQueue& rows) {
  if (rows.dropped() > 0) {
    complainAll("warning", {droppedRowsFinding(output, rows.dropped())});
  }
}

/// Of a machine that goes on without it.
void sayFailed(const std::string& why) {
  complain("torvex: warning: the recording ended: " + visible(why) + "\n");
}

/// False, with an error said, when it could not be written: what else there is does not suffer.
template <typename Output>
bool isFinished(const char* what, std::optional<Output>& output) {
  if (!output) {
    return true;
  }
  sayDropped(what, output->rows());
  try {
    output->finish();
    return true;
  } catch (const std::exception& error) {
    complain(
        fmt::format("torvex: error: the {} was not written: {}\n", what, visible(error.what())));
    return false;
  }
}

int finish(std::optional<Trace>& trace, Recordings& recordings, RingWatch& watch) {
  bool isWhole = isFinished("trace", trace);
  isWhole = isFinished("ring", recordings.latest) && isWhole;
  isWhole = isFinished("recording", recordings.whole) && isWhole;
  watch.look();
  if (recordings.ring != nullptr) {
    complainAll("warning", ringLeftOut(recordings.ring->files()));
  }
  return isWhole ? okStatus : shortfallStatus;
}

int serve(ServeOptions& options) {
  const MachineModel machine = readMachineFile(options.machinePath);
  choosePool(options.session, machine.name);
  const NamedFiles files = checkedFiles(options, machine);
  const StopSignal stopSignal;
  const UserSignal userSignal;
  Plan plan;
  plan.schedule.cycleMs = options.cycleMs;
  plan.schedule.approachMs = 0;
  std::optional<Trace> trace;
  Recordings recordings;
  Torvex torvex(machine, plan, options.session);
  std::optional<RingWatch> watch;
  {
    OpenDoor door(machine, torvex, options.door, options.session, files);
    if (!options.tracePath.empty()) {
      trace.emplace(options.tracePath, torvex.columnNames());
      torvex.addRows(trace->rows(), "trace");
    }
    record(options.recording, machine.name, machine, plan, torvex, recordings, sayFailed);
    door.setRing(recordings.ring);
    announce(options, door);
    door.open();
    tellSystemd("READY=1");
    watch.emplace(torvex, recordings.ring, true);
    torvex.run([&watch](std::int64_t) { watch->look(); });
    watch->look();
    StopSignal::letRepeatedEnd();
    tellSystemd("STOPPING=1");
  }
  const CycleCount& counts = torvex.result().counts;
  say(fmt::format("ended by signal {} after {} cycles, {} overruns\n", StopSignal::received(),
                  std::uint64_t{counts.cycles}, torvex.result().pace.overruns));
  return finish(trace, recordings, *watch);
}

}  // namespace

void addServeCommand(CLI::App& app, Command& chosen) {
  const auto options = std::make_shared<ServeOptions>();
  options->session.waitsForSignal = true;
  CLI::App& command = addSubcommand(
      app, "serve", "Keep a machine running for clients that command it",
      "Example:\n"
      "  torvex serve examples/humanoid/humanoid.yaml\n\n"
      "Clients send HTTP requests with JSON to the socket; docs/api.md describes them. A signal\n"
      "ramps the machine to rest and ends it.\n\n"
      "Exit status: 0 after a signal; 1 after a failure; 2 for bad input or wrong usage, or if\n"
      "another process serves this machine.",
      [options] { return serve(*options); }, chosen);
  addMachine(command, options->machinePath);
  addCycle(command, options->cycleMs);
  addCycleScheduling(command, options->session.cycleScheduling);
  addLate(command, options->session.late);
  addGuard(command, options->session.guard);
  addFlag(command, "--strict,!--no-strict", options->door.isStrict,
          "Refuse commands that are too fast or beyond the limits (default); with --no-strict "
          "values are clamped, and the guard stops axes that are too fast");
  addDoor(command, options->door);
  addOption(command, {"--trace", "FILE.csv", "Write a row for each cycle to this CSV file", ""},
            options->tracePath);
  addRecord(command, options->recording);
  addPreferenceDirectory(command, options->session.preferenceDirectory);
  addPool(command,
          "Name of the device pool in shared memory; each user has separate names (default: the "
          "machine's name)",
          options->session.poolName);
  addPoolMode(command, options->session.poolMode);
}

}  // namespace host
