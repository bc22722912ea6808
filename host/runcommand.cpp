#include "host/runcommand.h"

#include <fmt/format.h>

#include <cstdio>
#include <exception>
#include <optional>
#include <string>
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

void print(const std::string& text) {
  fmt::print("{}", text);
  std::fflush(stdout);
}

void printLines(const char* kind, const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    fmt::print(stderr, "torvex: {}: {}\n", kind, line);
  }
}

int outcome(Torvex& torvex) {
  print(runReport(torvex));
  printLines("warning", warnings(torvex));
  if (const int signal = StopSignal::received()) {
    fmt::print(stderr, "torvex: stopped by signal {}\n", signal);
    return signalStatus + signal;
  }
  const std::vector<std::string> reasons = shortfalls(torvex);
  printLines("error", reasons);
  return reasons.empty() ? okStatus : shortfallStatus;
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
    trace.emplace(options.tracePath, jointNames(robot, motion));
  }
  Torvex torvex(robot, motion, schedule, options, trace ? &*trace : nullptr);
  print(loadedReport(robot, motion, schedule, options, torvex.machine().replacedLeftover()));
  torvex.run([&](std::int64_t timeMs) {
    view.show(torvex.joints(), timeMs, torvex.feeder().lastItemMs());
  });
  view.clear();
  if (trace) {
    trace->finish();
  }
  return outcome(torvex);
}

}  // namespace

int runCommand(const RunOptions& options) {
  try {
    return run(options);
  } catch (const InputError& error) {
    fmt::print(stderr, "{}\n", error.what());
    return badInputStatus;
  } catch (const simulation::Error& error) {
    fmt::print(stderr, "torvex: error: {}\n", error.what());
    return badInputStatus;
  } catch (const std::exception& error) {
    fmt::print(stderr, "torvex: error: {}\n", error.what());
    return shortfallStatus;
  }
}

}  // namespace host
