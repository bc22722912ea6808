#include "host/cli/options.h"

#include <charconv>
#include <system_error>

#include "host/base/textfile.h"

namespace host {
namespace {

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

int wholeNumber(const std::string& text) {
  int value = -1;
  const char* const end = text.data() + text.size();
  const auto [stop, failure] = std::from_chars(text.data(), end, value);
  return failure == std::errc() && stop == end ? value : -1;
}

int priority(const std::string& text) {
  const int value = wholeNumber(text);
  if (value < 2 || value > 99) {
    throw CLI::ValidationError("--priority", "'" + text + "' is not a priority from 2 to 99");
  }
  return value;
}

int processor(const std::string& text) {
  const int value = wholeNumber(text);
  if (tryScheduling({0, value}).processor != 0) {
    throw CLI::ValidationError("--affinity",
                               "'" + text + "' is not a processor that this process may run on");
  }
  return value;
}

}  // namespace

double positiveNumber(const std::string& option, const std::string& text) {
  double value = 0.0;
  if (!parseNumber(text, value) || value <= 0) {
    throw CLI::ValidationError(option, "'" + text + "' is not a number above 0");
  }
  return value;
}

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

void addMachine(CLI::App& command, std::string& path) {
  command
      .add_option("MACHINE", path, "Machine: a robot description (URDF) or a machine file (YAML)")
      ->required();
}

void addMotions(CLI::App& command, std::vector<std::string>& paths) {
  command
      .add_option("MOTION", paths,
                  "Motions: trajectory_msgs/JointTrajectory or batches of commands, in YAML")
      ->required();
}

void addTiming(CLI::App& command, Timing& timing) {
  constexpr std::uint32_t longestCycleMs = 1000;
  constexpr std::uint32_t longestApproachMs = 70'000'000;
  command
      .add_option_function<std::string>(
          "--cycle",
          [&timing](const std::string& text) {
            timing.cycleMs = milliseconds("--cycle", text, 1, longestCycleMs);
          },
          "Control cycle in whole milliseconds")
      ->type_name("TIME")
      ->default_str("10ms");
  command
      .add_option_function<std::string>(
          "--approach,--lead",
          [&timing](const std::string& text) {
            timing.approachMs = milliseconds("--approach", text, 1, longestApproachMs);
          },
          "Time to approach the first points of trajectories (default: what they need)")
      ->type_name("TIME");
}

void addCycleScheduling(CLI::App& command, ThreadScheduling& scheduling) {
  command
      .add_option_function<std::string>(
          "--priority",
          [&scheduling](const std::string& text) { scheduling.priority = priority(text); },
          "Real-time priority of the cycle thread, 2 to 99; commands come one below")
      ->type_name("NUMBER")
      ->default_str(std::to_string(scheduling.priority));
  command
      .add_option_function<std::string>(
          "--affinity",
          [&scheduling](const std::string& text) { scheduling.processor = processor(text); },
          "The processor that the cycle thread runs on (default: any)")
      ->type_name("CPU");
}

void addPreferenceDirectory(CLI::App& command, std::string& path) {
  command.add_option("--directory", path, "Preference directory, created when it is missing")
      ->type_name("DIR")
      ->check([](const std::string& given) { return given.empty() ? "is empty" : ""; })
      ->capture_default_str();
}

void addPool(CLI::App& command, std::string& name) {
  command.add_option("--pool", name, "Name of the device pool in shared memory")
      ->type_name("NAME")
      ->check([](const std::string& given) { return given.empty() ? "is empty" : ""; })
      ->capture_default_str();
}

}  // namespace host
