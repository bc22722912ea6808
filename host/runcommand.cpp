#include "host/runcommand.h"

#include <fmt/format.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "host/input/jointtrajectory.h"
#include "host/input/source.h"
#include "host/input/urdf.h"
#include "host/liveview.h"
#include "host/report.h"
#include "host/schedule.h"
#include "host/stopsignal.h"
#include "host/torvex.h"
#include "host/trace.h"

namespace host {
namespace {

constexpr int okStatus = 0;
constexpr int shortfallStatus = 1;
constexpr int badInputStatus = 2;
constexpr int signalStatus = 128;

std::vector<std::string> jointNames(const Robot& robot, const Motion& motion) {
  std::vector<std::string> names;
  for (const int actuator : motion.actuators) {
    names.push_back(robot.machine.actuators[static_cast<std::size_t>(actuator)].name);
  }
  return names;
}

/// To a standard stream, which may fail: that must not end a run.
void say(std::FILE* stream, const std::string& text) {
  std::fputs(text.c_str(), stream);
  std::fflush(stream);
}

void sayLines(const char* kind, const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    say(stderr, fmt::format("torvex: {}: {}\n", kind, line));
  }
}

void checkTracePath(const RunOptions& options) {
  for (const std::string& input : {options.robotPath, options.motionPath}) {
    std::error_code none;
    if (std::filesystem::equivalent(options.tracePath, input, none)) {
      throw InputError(options.tracePath, {}, "the trace would replace an input of the run");
    }
  }
}

/// Why the trace is not there; empty when it is.
std::vector<std::string> finish(Trace& trace) {
  try {
    trace.finish();
    return {};
  } catch (const std::exception& error) {
    return {fmt::format("the trace was not written: {}", error.what())};
  }
}

int outcome(Torvex& torvex, const std::vector<std::string>& traceFailures) {
  say(stdout, runReport(torvex));
  sayLines("warning", warnings(torvex));
  sayLines("error", traceFailures);
  if (const int signal = StopSignal::received()) {
    say(stderr, fmt::format("torvex: stopped by signal {}\n", signal));
    return signalStatus + signal;
  }
  const std::vector<std::string> reasons = shortfalls(torvex);
  sayLines("error", reasons);
  if (std::ferror(stdout) != 0) {
    say(stderr, "torvex: error: standard output cannot be written\n");
  }
  const bool allDone = reasons.empty() && traceFailures.empty() && std::ferror(stdout) == 0;
  return allDone ? okStatus : shortfallStatus;
}

int run(const RunOptions& options) {
  LiveView view;
  view.announce("reading " + options.robotPath);
  const Robot robot = readUrdf(options.robotPath);
  view.announce("reading " + options.motionPath);
  const Motion motion = readJointTrajectory(options.motionPath, robot);
  const Schedule schedule = planSchedule(robot, motion, options);
  view.clear();

  const StopSignal stopSignal;
  std::optional<Trace> trace;
  if (!options.tracePath.empty()) {
    checkTracePath(options);
    trace.emplace(options.tracePath, jointNames(robot, motion));
  }
  Torvex torvex(robot, motion, schedule, options, trace ? &*trace : nullptr);
  say(stdout, loadedReport(robot, motion, schedule, options, torvex.machine().replacedLeftover()));
  torvex.run([&](std::int64_t timeMs) {
    view.show(torvex.joints(), timeMs, torvex.feeder().lastItemMs());
  });
  view.clear();
  return outcome(torvex, trace ? finish(*trace) : std::vector<std::string>());
}

}  // namespace

int runCommand(const RunOptions& options) {
  try {
    return run(options);
  } catch (const InputError& error) {
    say(stderr, fmt::format("{}\n", error.what()));
    return badInputStatus;
  } catch (const simulation::Error& error) {
    say(stderr, fmt::format("torvex: error: {}\n", error.what()));
    return badInputStatus;
  } catch (const std::exception& error) {
    say(stderr, fmt::format("torvex: error: {}\n", error.what()));
    return shortfallStatus;
  }
}

}  // namespace host
