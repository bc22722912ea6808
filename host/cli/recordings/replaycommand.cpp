#include "host/cli/recordings/replaycommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "host/base/clocks.h"
#include "host/base/outputpaths.h"
#include "host/base/stopsignal.h"
#include "host/base/values.h"
#include "host/base/visible.h"
#include "host/cli/opendoor.h"
#include "host/cli/options.h"
#include "host/cli/output.h"
#include "host/cli/poolname.h"
#include "host/cli/recordings/faults.h"
#include "host/cli/recordings/replay.h"
#include "host/cli/status.h"
#include "host/engine/torvex.h"
#include "host/engine/trace.h"

namespace host {
namespace {

struct ReplayOptions {
  std::string recordingPath;
  /// Empty: no trace.
  std::string tracePath;
  std::optional<double> untilSeconds;
  /// Of real time; none: as fast as it goes.
  std::optional<double> speed;
  bool isServing = false;
  DoorOptions door;
  std::string poolName;
  bool json = false;
};

/// Lets cycles come when they are due, up to the end that is wanted.
class Pace {
 public:
  explicit Pace(const ReplayOptions& options)
      : untilMs_(options.untilSeconds.value_or(mostSeconds) * msPerSecond), speed_(options.speed) {}

  /// Waits in short steps, so that a signal ends it.
  bool awaits(std::int64_t timeMs) {
    constexpr std::int64_t stepNs = 20 * nsPerMs;
    if (static_cast<double>(timeMs) > untilMs_) {
      return false;
    }
    if (speed_) {
      const auto ahead = static_cast<double>(timeMs - first(timeMs));
      const double aheadNs = std::min(ahead / *speed_ * 1e6, mostAheadNs);
      const std::int64_t dueNs = *beginNs_ + static_cast<std::int64_t>(aheadNs);
      for (std::int64_t now = bootNs(); now < dueNs && StopSignal::received() == 0;
           now = bootNs()) {
        sleepUntil(std::min(dueNs, now + stepNs));
      }
    }
    return StopSignal::received() == 0;
  }

 private:
  static constexpr double mostSeconds = 1e15;
  static constexpr double mostAheadNs = 1e18;

  std::int64_t first(std::int64_t timeMs) {
    if (!beginNs_) {
      beginNs_ = bootNs();
      firstMs_ = timeMs;
    }
    return firstMs_;
  }

  const double untilMs_;
  const std::optional<double> speed_;
  std::optional<std::int64_t> beginNs_;
  std::int64_t firstMs_ = 0;
};

SessionOptions sessionOf(const ReplayOptions& options, const ReplayedMachine& machine) {
  SessionOptions session = machine.session();
  session.poolName = options.poolName;
  if (options.isServing && session.poolName.empty()) {
    session.poolName = poolNameFor(machine.model.name);
  }
  return session;
}

Json numberOrName(double number) {
  const Json json = numberJson(number);
  return json.is_number_float() && !std::isfinite(number) ? Json(fmt::format("{}", number)) : json;
}

Json replayJson(const ReplayResult& result) {
  Json first;
  if (result.first) {
    first = {{"machine_ms", result.first->timeMs},
             {"key", result.first->column},
             {"recorded", numberOrName(result.first->recorded)},
             {"replayed", numberOrName(result.first->replayed)}};
  }
  return {{"cycles", result.cycles},     {"last_ms", result.lastMs},
          {"compared", result.compared}, {"different", result.different},
          {"first_difference", first},   {"faults", result.faults}};
}

std::string replayText(const ReplayResult& result) {
  std::string text =
      fmt::format("replayed {} cycles, up to {:.3f} s\n", result.cycles, inSeconds(result.lastMs));
  if (!result.first) {
    return text + fmt::format("values   as recorded, in all {} rows\n", result.compared);
  }
  return text + fmt::format(
                    "values   differ from those recorded in {} of {} rows; the first one is "
                    "{} at {:.3f} s: {} recorded, {} replayed\n",
                    result.different, result.compared, visible(result.first->column),
                    inSeconds(result.first->timeMs), result.first->recorded,
                    result.first->replayed);
}

/// Where the report goes: standard output may be that of the trace.
void report(const ReplayOptions& options, const std::string& text) {
  isStandardOutput(options.tracePath) ? complain(text) : say(text);
}

int conclude(const ReplayOptions& options, const ReplayResult& result) {
  report(options, options.json ? printed(replayJson(result), 2) + "\n" : replayText(result));
  complainOfFaults(options.recordingPath, result.faults);
  if (const int signal = StopSignal::received(); signal != 0) {
    complain(fmt::format("torvex: stopped by signal {}\n", signal));
    return signalStatus + signal;
  }
  const bool isSame = !result.first && result.faults.empty();
  return isSame ? okStatus : shortfallStatus;
}

/// Throws `UserError` where outputs would overwrite each other, or what is read.
NamedFiles checkedFiles(const ReplayOptions& options, const ReplayedMachine& machine) {
  NamedFiles files{{}, {options.recordingPath}};
  if (!options.tracePath.empty()) {
    files.outputs.push_back({options.tracePath, "trace"});
  }
  if (options.isServing) {
    addFiles(options.door, machine.model.name, files);
  }
  checkOutputs(files.outputs, files.inputs);
  return files;
}

int replay(const ReplayOptions& options) {
  const StopSignal stopSignal;
  const ReplayedMachine machine = readReplayedMachine(options.recordingPath);
  const NamedFiles files = checkedFiles(options, machine);
  const Plan plan = machine.plan();
  const SessionOptions session = sessionOf(options, machine);
  std::optional<Trace> trace;
  Torvex torvex(machine.model, plan, session);
  Replay replay(options.recordingPath, machine, torvex);
  if (!options.tracePath.empty()) {
    trace.emplace(options.tracePath, machine.head.columns);
    torvex.addRows(trace->rows(), "trace");
  }
  ReplayResult result;
  {
    std::optional<OpenDoor> door;
    if (options.isServing) {
      door.emplace(machine.model, torvex, options.door, session, files);
      report(options, options.json ? "" : door->announcement());
      door->open();
    }
    Pace pace(options);
    result = replay.run([&](std::int64_t timeMs) { return pace.awaits(timeMs); });
    StopSignal::letRepeatedEnd();
  }
  if (trace) {
    trace->finish();
  }
  return conclude(options, result);
}

}  // namespace

void addReplayCommand(CLI::App& app, Command& chosen) {
  const auto options = std::make_shared<ReplayOptions>();
  CLI::App& command = addSubcommand(
      app, "replay", "Repeat a recorded run",
      "Example:\n"
      "  torvex replay wave.mcap --trace again.csv\n\n"
      "Repeats the run on a simulated machine, cycle by cycle, and compares its values with the\n"
      "recorded ones. The trace has the same rows as that of the recorded run. With --serve "
      "clients\n"
      "can watch; their commands are refused.\n\n"
      "Exit status: 0 if all values are as recorded; 1 if a value differs, or if the recording is "
      "cut\n"
      "or damaged (the part before the damage is replayed); 2 for bad input or wrong usage.",
      [options] { return replay(*options); }, chosen);
  addArgument(command, "RECORDING", options->recordingPath, "An MCAP file that --record wrote");
  addOption(command,
            {"--trace", "FILE.csv",
             "Write a row for each cycle to this CSV file; - is standard output", ""},
            [options](const std::string& text) {
              options->tracePath = text == "-" ? "/dev/stdout" : text;
            });
  addOption(command, {"--until", "SECONDS", "Stop at this machine time", ""},
            [options](const std::string& text) {
              options->untilSeconds = positiveNumber("--until", text);
            });
  addOption(
      command,
      {"--speed", "FACTOR", "Speed relative to the recorded run (default: as fast as possible)",
       ""},
      [options](const std::string& text) { options->speed = positiveNumber("--speed", text); });
  addServeFlag(command, "Also open the door, so that clients can watch", options->isServing,
               options->door);
  addOption(command,
            {"--pool", "NAME",
             "Name of the device pool in shared memory (default: the machine's name with --serve; "
             "otherwise no other process sees the pool)",
             ""},
            options->poolName);
  addFlag(command, "--json", options->json, "Print a JSON object instead of text");
}

}  // namespace host
