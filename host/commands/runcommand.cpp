#include "host/commands/runcommand.h"

#include <fmt/format.h>

#include <exception>
#include <filesystem>
#include <memory>
#include <optional>

#include "host/commands/status.h"
#include "host/input/motion.h"
#include "host/input/source.h"
#include "host/liveview.h"
#include "host/outputpaths.h"
#include "host/plot/plot.h"
#include "host/realtime.h"
#include "host/report.h"
#include "host/stopsignal.h"
#include "host/torvex.h"
#include "host/trace.h"
#include "host/values.h"

namespace host {
namespace {

void complainLines(const char* kind, const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    complain(fmt::format("torvex: {}: {}\n", kind, line));
  }
}

std::string joinedLines(const std::vector<std::string>& lines) {
  return lines.empty() ? "" : fmt::format("{}\n", fmt::join(lines, "\n"));
}

void checkOutputPaths(const RunOptions& options, const MachineFile& machine) {
  std::vector<std::string> inputs = options.motionPaths;
  inputs.insert(inputs.end(), machine.paths.begin(), machine.paths.end());
  std::vector<NamedOutput> outputs;
  if (!options.tracePath.empty()) {
    outputs.push_back({options.tracePath, "trace"});
  }
  if (!options.plotPath.empty()) {
    outputs.push_back({options.plotPath, "picture"});
  }
  for (const PreferenceExport& wanted : options.exports) {
    checkExport(machine, wanted, options.preferenceDirectory);
    outputs.push_back(
        {wanted.pathIn(options.preferenceDirectory), "preference file of " + wanted.container});
  }
  checkOutputs(outputs, inputs);
}

std::string titleOf(const MachineFile& machine, const RunOptions& options) {
  std::vector<std::string> motions;
  for (const std::string& path : options.motionPaths) {
    motions.push_back(std::filesystem::path(path).filename().string());
  }
  return fmt::format("{}: {}", machine.name, fmt::join(motions, ", "));
}

std::vector<std::string> columnNames(const Torvex& torvex) {
  std::vector<std::string> names;
  for (const TracedColumn& column : torvex.columns()) {
    names.push_back(column.name);
  }
  return names;
}

/// What a run leaves behind; opened before anything moves.
struct Outputs {
  std::optional<Trace> trace;
  std::optional<Plot> plot;
};

void finish(Outputs& outputs, const Torvex& torvex, const Plan& plan, Outcome& outcome) {
  const auto attempt = [&](const char* what, const auto& action) {
    try {
      action();
    } catch (const std::exception& error) {
      outcome.errors.push_back(fmt::format("the {} was not written: {}", what, error.what()));
    }
  };
  if (outputs.trace) {
    attempt("trace", [&] { outputs.trace->finish(); });
  }
  if (outputs.plot) {
    attempt("picture", [&] { outputs.plot->draw(torvex, plan); });
  }
  const RunOptions& options = torvex.options();
  for (const PreferenceExport& wanted : options.exports) {
    attempt("export", [&] {
      outcome.exports.push_back(exportPreferences(wanted, options.preferenceDirectory));
    });
  }
}

/// Says all of it, and the status to exit with.
int conclude(Torvex& torvex, Outcome& outcome) {
  const std::vector<std::string> noted = warnings(torvex);
  outcome.warnings.insert(outcome.warnings.end(), noted.begin(), noted.end());
  outcome.signal = StopSignal::received();
  if (outcome.signal == 0) {
    const std::vector<std::string> reasons = shortfalls(torvex);
    outcome.errors.insert(outcome.errors.end(), reasons.begin(), reasons.end());
  }
  say(torvex.options().json ? printed(runJson(torvex, outcome), 2) + "\n"
                            : joinedLines(outcome.exports) + runReport(torvex));
  complainLines("warning", noted);
  complainLines("error", outcome.errors);
  if (outcome.signal != 0) {
    complain(fmt::format("torvex: stopped by signal {}\n", outcome.signal));
    return signalStatus + outcome.signal;
  }
  if (outputFailed()) {
    complain("torvex: error: standard output cannot be written\n");
  }
  return outcome.errors.empty() && !outputFailed() ? okStatus : shortfallStatus;
}

/// What is known before anything moves.
Outcome announce(Torvex& torvex, const MachineFile& machine, const std::vector<Motion>& motions,
                 const Schedule& schedule) {
  const RunOptions& options = torvex.options();
  Outcome outcome;
  outcome.machine = machine.name;
  if (!options.json) {
    say(loadedReport(machine, motions, schedule, options, torvex.machine().replacedLeftover()));
  }
  outcome.warnings = lateItems(motions);
  for (const std::string& warning : outcome.warnings) {
    complain(warning + "\n");
  }
  if (options.clock == Clock::realtime) {
    const std::vector<std::string> refused = prepareRealtime(options.cyclePlace);
    complainLines("warning", refused);
    outcome.warnings.insert(outcome.warnings.end(), refused.begin(), refused.end());
  }
  return outcome;
}

int run(const RunOptions& options) {
  LiveView view;
  view.announce("reading " + options.machinePath);
  const MachineFile machine = readMachineFile(options.machinePath);
  view.announce("reading motions");
  const std::vector<Motion> motions = readMotionFiles(options.motionPaths, machine);
  const Plan plan = planRun(machine, motions, options.timing);
  view.clear();

  checkOutputPaths(options, machine);
  const StopSignal stopSignal;
  Outputs outputs;
  Torvex torvex(machine, plan, options);
  if (!options.tracePath.empty()) {
    torvex.setTrace(&outputs.trace.emplace(options.tracePath, columnNames(torvex)));
  }
  if (!options.plotPath.empty()) {
    outputs.plot.emplace(options.plotPath, titleOf(machine, options));
  }
  Outcome outcome = announce(torvex, machine, motions, plan.schedule);
  torvex.run(
      [&](std::int64_t timeMs) { view.show(torvex.actuators(), timeMs, torvex.lastItemMs()); });
  view.clear();
  finish(outputs, torvex, plan, outcome);
  return conclude(torvex, outcome);
}

PreferenceExport exportNamed(const std::string& text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string::npos) {
    throw CLI::ValidationError("--export", "'" + text + "' is not CONTAINER=FILE");
  }
  return {text.substr(0, equals), text.substr(equals + 1)};
}

Clock clockNamed(const std::string& text) {
  if (text != "realtime" && text != "simulated") {
    throw CLI::ValidationError("--clock", "'" + text + "' is neither realtime nor simulated");
  }
  return text == "realtime" ? Clock::realtime : Clock::simulated;
}

void addClock(CLI::App& command, RunOptions& options) {
  command
      .add_option_function<std::string>(
          "--clock", [&options](const std::string& text) { options.clock = clockNamed(text); },
          "realtime: a cycle thread on the monotonic clock; simulated: as fast as it goes")
      ->type_name("realtime|simulated")
      ->default_str("realtime");
  command
      .add_option_function<std::string>(
          "--start", [&options](const std::string& text) { options.startTick = tick(text); },
          "Tick of the first cycle, in milliseconds modulo 2^32")
      ->type_name("TICK")
      ->default_str("0");
}

void addOutputs(CLI::App& command, RunOptions& options) {
  command.add_option("--trace", options.tracePath, "Write every cycle to this CSV file")
      ->type_name("FILE.csv");
  command
      .add_option("--plot", options.plotPath,
                  "Draw commands and measured values over time (needs gnuplot)")
      ->type_name("FILE.svg");
}

void addExports(CLI::App& command, RunOptions& options) {
  command
      .add_option_function<std::vector<std::string>>(
          "--export",
          [&options](const std::vector<std::string>& texts) {
            for (const std::string& text : texts) {
              options.exports.push_back(exportNamed(text));
            }
          },
          "Write the preferences of a container to a file at the end; may be repeated")
      ->type_name("CONTAINER=FILE")
      ->expected(1)
      ->take_all();
  addPreferenceDirectory(command, options.preferenceDirectory);
}

}  // namespace

void addRunCommand(CLI::App& app, Command& chosen) {
  CLI::App& command = *app.add_subcommand("run", "Move a machine along motions");
  const auto options = std::make_shared<RunOptions>();
  command.footer(
      "Example:\n"
      "  torvex run examples/humanoid/humanoid.yaml examples/humanoid/wave.yaml "
      "--trace wave.csv --plot wave.svg\n\n"
      "Exit status: 0 when every command was delivered and reached; 1 when not, saying which;\n"
      "2 for bad input or usage; 128 and the signal's number when a signal stopped it.");
  addMachine(command, options->machinePath);
  addMotions(command, options->motionPaths);
  addClock(command, *options);
  addTiming(command, options->timing);
  addCyclePlace(command, options->cyclePlace);
  command
      .add_option_function<std::string>(
          "--tolerance",
          [&tolerance = options->tolerance](const std::string& text) {
            tolerance = positiveNumber("--tolerance", text);
          },
          "How far an actuator may end from its command, in its unit")
      ->type_name("NUMBER")
      ->default_str("0.01");
  addOutputs(command, *options);
  addExports(command, *options);
  addPool(command, options->poolName);
  command.add_flag("--json", options->json, "The outcome as a JSON object instead of tables");
  command.callback([options, &chosen] { chosen = [options] { return run(*options); }; });
}

}  // namespace host
