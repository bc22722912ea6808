#include "host/cli/runcommand.h"
#include "host/cli/options.h"
#include "host/cli/output.h"
#include "host/input/machinefile.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <utility>

#include "host/base/stopsignal.h"
#include "host/base/usersignal.h"
#include "host/base/visible.h"
#include "host/cli/liveview.h"
#include "host/cli/opendoor.h"
#include "host/cli/poolname.h"
#include "host/cli/recordingoutputs.h"
#include "host/cli/ringwatch.h"
#include "host/cli/runoutputs.h"
#include "host/cli/status.h"
#include "host/engine/realtime.h"
#include "host/engine/torvex.h"
#include "host/input/motionfile.h"
#include "host/motion/plan.h"
#include "host/motion/rehearsal.h"
#include "host/motion/scaling.h"
#include "host/results/findings.h"
#include "host/results/report.h"
#include "host/results/runjson.h"
#include "host/results/runlog.h"

namespace host {
namespace {

std::string joinedLines(const std::vector<std::string>& lines, const std::string& begin = "") {
  std::string text;
  for (const std::string& line : lines) {
    text += begin + visible(line) + "\n";
  }
  return text;
}

/// Where the report goes.
void report(const RunOptions& options, const std::string& text) {
  leavesStandardOutput(options) ? complain(text) : say(text);
}

void checkJoints(const RunOptions& options, const Torvex& torvex) {
  const auto& axes = torvex.shownAxes();
  if (!axes.empty() && std::none_of(axes.begin(), axes.end(), [&](const ShownAxis& shown) {
        return isChosen(options.picture.joints, shown.axis.actuator.name);
      })) {
    throw UserError(
        options.motionPaths.front(), {},
        fmt::format("moves no actuator that matches --joints '{}'", options.picture.joints));
  }
}

/// What the run did of what was asked, from its events.
void judge(const RunOptions& options, const RunResult& result, const Plan& plan,
           const Findings& findings, Outcome& outcome) {
  outcome.signal = StopSignal::received();
  std::vector<Finding> noted = findings.all();
  const std::vector<Finding> ofCycles = cycleFindings(result);
  noted.insert(noted.end(), ofCycles.begin(), ofCycles.end());
  for (Finding& finding : noted) {
    const bool isError = finding.isFailure || (options.strict && finding.isOfCycles);
    (isError ? outcome.errors : outcome.warnings).push_back(std::move(finding));
  }
  outcome.axes = judgedAxes(result, plan, outcome);
}

/// Says all of it, and the status to exit with.
int conclude(const RunOptions& options, const RunResult& result, const Plan& plan,
             const Outcome& outcome) {
  report(options, options.json
                      ? runJson(options, result, plan, outcome)
                      : joinedLines(outcome.exports) + joinedLines(outcome.ringFiles, "recorded ") +
                            runReport(result, outcome));
  complainAll("warning", outcome.warnings);
  complainAll("error", outcome.errors);
  if (outcome.signal != 0) {
    complain(fmt::format("torvex: stopped by signal {}\n", outcome.signal));
    return signalStatus + outcome.signal;
  }
  return outcome.errors.empty() ? okStatus : shortfallStatus;
}

/// What is known before anything moves.
void announce(const RunOptions& options, Torvex& torvex, const MachineModel& machine,
              const std::vector<CommandBatch>& batches, const Schedule& schedule,
              Outcome& outcome) {
  if (!options.json) {
    report(options, loadedReport(machine, batches, schedule, options,
                                 torvex.engine().machine().replacedLeftover()));
  }
  if (options.session.clock == Clock::realtime) {
    for (const std::string& refused : prepareRealtime(options.session.cycleScheduling)) {
      Finding& warning = outcome.warnings.emplace_back();
      warning.text = refused;
    }
  }
}

/// Whatever a run would warn of is an error before it.
bool isRefusedStrictly(const MachineModel& machine, const Plan& plan) {
  Findings findings(machine, plan);
  rehearse(machine, plan, findings);
  complainAll("error", findings.all());
  return !findings.all().empty();
}

/// Runs it, shows how far it is, and has the door open meanwhile where that is wanted.
void moveMachine(const RunOptions& options, const std::optional<DoorOptions>& doorOptions,
                 const NamedFiles& files, const MachineModel& machine, Torvex& torvex,
                 FlightRecorder* ring, LiveView& view) {
  std::optional<OpenDoor> door;
  if (doorOptions) {
    torvex.ownPlan("run");
    door.emplace(machine, torvex, *doorOptions, options.session, files);
    door->setRing(ring);
    report(options, options.json ? "" : door->announcement());
    door->open();
  }
  if (options.session.clock == Clock::simulated) {
    StopSignal::letRepeatedEnd();
  }
  RingWatch watch(torvex, ring, false);
  torvex.run([&](std::int64_t timeMs) {
    view.show(torvex.shownAxes(), timeMs, torvex.lastItemMs());
    watch.look();
  });
  watch.look();
  StopSignal::letRepeatedEnd();
  view.clear();
}

int run(RunOptions& options, const std::optional<DoorOptions>& doorOptions) {
  LiveView view;
  view.announce("reading " + options.machinePath);
  const MachineModel machine = readMachineFile(options.machinePath);
  choosePool(options.session, machine.name);
  view.announce("reading motions");
  std::vector<CommandBatch> batches =
      readMotionFiles(options.motionPaths, machine, options.motions);
  if (options.timing.scales) {
    stretchToLimits(machine, batches, options.timing);
  }
  const Plan plan = planRun(machine, batches, options.timing);
  view.clear();
  NamedFiles files = filesOf(options, machine, batches);
  if (doorOptions) {
    addFiles(*doorOptions, machine.name, files);
  }
  checkFiles(options, files);
  if (options.strict && isRefusedStrictly(machine, plan)) {
    return badInputStatus;
  }

  const StopSignal stopSignal;
  const UserSignal userSignal;
  RunOutputs outputs;
  Findings findings(machine, plan);
  RunLog log;
  Torvex torvex(machine, plan, options.session);
  checkJoints(options, torvex);
  torvex.addListener(findings);
  torvex.addListener(log);
  openOutputs(options, machine, plan, torvex, outputs);
  Outcome outcome;
  outcome.machine = machine.name;
  outcome.stretched = stretchedBatches(batches);
  announce(options, torvex, machine, batches, plan.schedule, outcome);
  moveMachine(options, doorOptions, files, machine, torvex, outputs.recordings.ring, view);
  finishOutputs(options, outputs, torvex.result(), log, outcome);
  judge(options, torvex.result(), plan, findings, outcome);
  return conclude(options, torvex.result(), plan, outcome);
}

PreferenceExport exportNamed(const std::string& text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string::npos) {
    refuseOption("--export", "'" + text + "' is not CONTAINER=FILE");
  }
  return {text.substr(0, equals), text.substr(equals + 1)};
}

Clock clockNamed(const std::string& text) {
  if (text != "realtime" && text != "simulated") {
    refuseOption("--clock", "'" + text + "' is neither realtime nor simulated");
  }
  return text == "realtime" ? Clock::realtime : Clock::simulated;
}

void addClock(CLI::App& command, RunOptions& options) {
  addOption(command,
            {"--clock", "realtime|simulated",
             "realtime: cycles on the monotonic clock; simulated: as fast as possible", "realtime"},
            [&options](const std::string& text) { options.session.clock = clockNamed(text); });
  addOption(command,
            {"--start", "TICK", "Tick of the first cycle, in milliseconds modulo 2^32", "0"},
            [&options](const std::string& text) { options.session.startTick = tick(text); });
}

void addPace(CLI::App& command, RunOptions& options) {
  addLate(command, options.session.late);
  addGuard(command, options.session.guard);
  addFlag(command, "--strict", options.strict,
          "Refuse motions for which 'torvex check' warns, before anything moves; exit with 1 if "
          "cycles were missed");
}

void addOutputs(CLI::App& command, RunOptions& options) {
  addOption(command,
            {"--trace", "FILE.csv",
             "Write a row for each cycle to this CSV file; - is standard output, and the report "
             "then goes to standard error",
             ""},
            [&options](const std::string& text) {
              options.tracePath = text == "-" ? "/dev/stdout" : text;
            });
  addRecord(command, options.recording);
  addOption(
      command,
      {"--plot", "FILE.svg", "Draw commands and measured values over time (needs gnuplot)", ""},
      options.plotPath);
  addFlag(command, "--plot-velocity", options.picture.velocities,
          "Draw commanded velocities as well");
  addNeed(command, {"--plot-velocity"}, "--plot");
  addOption(
      command,
      {"--joints", "PATTERN",
       "Which actuators are traced and drawn: a shell pattern of their names, such as 'left_*'",
       "*"},
      options.picture.joints);
}

void addExports(CLI::App& command, RunOptions& options) {
  addRepeatable(
      command,
      {"--export", "CONTAINER=FILE",
       "Write the preferences of a container to a file at the end; may be repeated", ""},
      [&options](const std::string& text) { options.exports.push_back(exportNamed(text)); });
  addPreferenceDirectory(command, options.session.preferenceDirectory);
}

}  // namespace

void addRunCommand(CLI::App& app, Command& chosen) {
  const auto options = std::make_shared<RunOptions>();
  const auto door = std::make_shared<DoorOptions>();
  const auto isServing = std::make_shared<bool>(false);
  CLI::App& command = addSubcommand(
      app, "run", "Move a simulated machine along motions",
      "Example:\n"
      "  torvex run examples/humanoid/humanoid.yaml examples/humanoid/wave.yaml --trace wave.csv "
      "--plot wave.svg\n\n"
      "Exit status: 0 if every point was reached, cleared by a batch, or moved to a limit (with a\n"
      "warning); 1 otherwise, with a message; 2 for bad input or wrong usage; 128 + N if signal N\n"
      "stopped it.\n\n" +
          std::string(reportWords),
      [options, door, isServing] {
        if (*isServing && options->session.clock == Clock::simulated) {
          throw simulation::Error("--serve needs real time; leave out --clock simulated");
        }
        return run(*options, *isServing ? std::optional(*door) : std::nullopt);
      },
      chosen);
  addMachine(command, options->machinePath);
  addMotions(command, options->motionPaths, options->motions);
  addPace(command, *options);
  addClock(command, *options);
  addCycle(command, options->timing.cycleMs);
  addTiming(command, options->timing);
  addCycleScheduling(command, options->session.cycleScheduling);
  addOption(command,
            {"--tolerance", "NUMBER",
             "The largest difference between measured value and command at the end, in the "
             "actuator's unit",
             "0.01"},
            [&tolerance = options->session.tolerance](const std::string& text) {
              tolerance = positiveNumber("--tolerance", text);
            });
  addOutputs(command, *options);
  addExports(command, *options);
  addPool(command,
          "Name of the device pool in shared memory; each user has separate names (default: the "
          "machine's name; none in simulated time)",
          options->session.poolName);
  addPoolMode(command, options->session.poolMode);
  addServeFlag(command, "Also open the door for clients during the run, as 'torvex serve' does",
               *isServing, *door);
  addFlag(command, "--json", options->json, "Print the outcome as a JSON object instead of tables");
}

}  // namespace host
