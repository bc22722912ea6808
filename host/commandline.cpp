#include "host/commandline.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <system_error>

#include "host/input/source.h"
#include "host/runcommand.h"

namespace host {
namespace {

constexpr int usageStatus = 2;

/// "10ms" or "10", within bounds.
std::uint32_t milliseconds(const std::string& option, const std::string& text, std::uint32_t least,
                           std::uint32_t most) {
  std::uint32_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, failure] = std::from_chars(text.data(), end, value);
  const std::string unit(stop, end);
  if (failure != std::errc() || (!unit.empty() && unit != "ms") || value < least || value > most) {
    throw CLI::ValidationError(option,
                               "'" + text + "' is not a whole number of milliseconds from " +
                                   std::to_string(least) + "ms to " + std::to_string(most) + "ms");
  }
  return value;
}

/// Decimal, or hexadecimal behind 0x.
std::uint32_t tick(const std::string& text) {
  const bool hexadecimal = text.rfind("0x", 0) == 0;
  std::uint32_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, failure] =
      std::from_chars(text.data() + (hexadecimal ? 2 : 0), end, value, hexadecimal ? 16 : 10);
  if (failure != std::errc() || stop != end) {
    throw CLI::ValidationError("--start",
                               "'" + text + "' is not a tick from 0 to 4294967295 (0xFFFFFFFF)");
  }
  return value;
}

Clock clockNamed(const std::string& text) {
  if (text != "realtime" && text != "simulated") {
    throw CLI::ValidationError("--clock", "'" + text + "' is neither realtime nor simulated");
  }
  return text == "realtime" ? Clock::realtime : Clock::simulated;
}

double positiveNumber(const std::string& option, const std::string& text) {
  double value = 0.0;
  if (!parseNumber(text, value) || value <= 0) {
    throw CLI::ValidationError(option, "'" + text + "' is not a number above 0");
  }
  return value;
}

void addTiming(CLI::App& run, RunOptions& options) {
  constexpr std::uint32_t longestCycleMs = 1000;
  constexpr std::uint32_t longestLeadMs = 70'000'000;
  run.add_option_function<std::string>(
         "--clock", [&options](const std::string& text) { options.clock = clockNamed(text); },
         "realtime: a cycle thread on the monotonic clock; simulated: as fast as it goes")
      ->type_name("realtime|simulated")
      ->default_str("realtime");
  run.add_option_function<std::string>(
         "--cycle",
         [&options](const std::string& text) {
           options.cycleMs = milliseconds("--cycle", text, 1, longestCycleMs);
         },
         "Control cycle in whole milliseconds")
      ->type_name("TIME")
      ->default_str("10ms");
  run.add_option_function<std::string>(
         "--start", [&options](const std::string& text) { options.startTick = tick(text); },
         "Tick of the first cycle, in milliseconds modulo 2^32")
      ->type_name("TICK")
      ->default_str("0");
  run.add_option_function<std::string>(
         "--lead",
         [&options](const std::string& text) {
           options.leadMs = milliseconds("--lead", text, 1, longestLeadMs);
         },
         "Time to approach the first point (default: what the joints need)")
      ->type_name("TIME");
}

void addRun(CLI::App& app, RunOptions& options) {
  CLI::App& run = *app.add_subcommand("run", "Move a robot description along a motion");
  run.footer(
      "Example:\n"
      "  torvex run examples/humanoid/humanoid.urdf examples/humanoid/wave.yaml --trace "
      "wave.csv\n\n"
      "Exit status: 0 when every command was delivered and reached; 1 when not, saying which;\n"
      "2 for bad input or usage; 128 and the signal's number when a signal stopped it.");
  run.add_option("ROBOT", options.robotPath, "Robot description (URDF)")->required();
  run.add_option("MOTION", options.motionPath, "Motion (trajectory_msgs/JointTrajectory in YAML)")
      ->required();
  addTiming(run, options);
  run.add_option_function<std::string>(
         "--tolerance",
         [&options](const std::string& text) {
           options.tolerance = positiveNumber("--tolerance", text);
         },
         "How far a joint may end from its command, in its unit")
      ->type_name("NUMBER")
      ->default_str("0.01");
  run.add_option("--trace", options.tracePath, "Write every cycle to this CSV file")
      ->type_name("FILE.csv");
  run.add_option("--pool", options.poolName, "Name of the device pool in shared memory")
      ->type_name("NAME")
      ->capture_default_str();
}

}  // namespace

int runCommandLine(int argc, char** argv) {
  CLI::App app("Runs the timed commands of a machine with actuators", "torvex");
  app.set_version_flag("--version", TORVEX_VERSION);
  app.require_subcommand(1);
  app.failure_message([](const CLI::App*, const CLI::Error& error) {
    return std::string("torvex: error: ") + error.what() + "; see --help\n";
  });
  RunOptions options;
  addRun(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : usageStatus;
  }
  return runCommand(options);
}

}  // namespace host
