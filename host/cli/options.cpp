#include "host/cli/options.h"

#include <charconv>
#include <cmath>
#include <optional>
#include <string>
#include <system_error>

#include "host/base/clocks.h"
#include "host/base/textfile.h"

namespace host {
namespace {

/// "10ms" or "1.5s", in whole milliseconds within bounds. A number without a unit could be either.
std::uint32_t milliseconds(const std::string& option, const std::string& text, std::uint32_t least,
                           std::uint32_t most) {
  const std::size_t digits = text.find_first_not_of("0123456789.");
  const std::string unit = digits == std::string::npos ? "" : text.substr(digits);
  double value = -1.0;
  if ((unit == "ms" || unit == "s") && parseNumber(text.substr(0, digits), value)) {
    value *= unit == "s" ? double{msPerSecond} : 1.0;
  }
  if (value < least || value > most || std::abs(value - std::round(value)) > 1e-6) {
    refuseOption(option, "'" + text + "' is not a time from " + std::to_string(least) + "ms to " +
                             std::to_string(most) +
                             "ms, in whole milliseconds or in seconds: " + "10ms, 1.5s");
  }
  return static_cast<std::uint32_t>(std::llround(value));
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
    refuseOption("--priority", "'" + text + "' is not a priority from 2 to 99");
  }
  return value;
}

Interpolation interpolationNamed(const std::string& text) {
  const std::optional<Interpolation> interpolation = valueOf(interpolationWords, text);
  if (!interpolation) {
    refuseOption("--interpolation", "'" + text + "' is neither message, linear nor smooth");
  }
  return *interpolation;
}

int processor(const std::string& text) {
  const int value = wholeNumber(text);
  if (tryScheduling({0, value}).processor != 0) {
    refuseOption("--affinity", "'" + text + "' is not a processor that this process may run on");
  }
  return value;
}

GuardMode guardNamed(const std::string& text) {
  const std::optional<GuardMode> mode = valueOf(guardModeWords, text);
  if (!mode) {
    refuseOption("--guard", "'" + text + "' is none of hold, warn and off");
  }
  return *mode;
}

Late lateNamed(const std::string& text) {
  if (text != "stand" && text != "catch-up") {
    refuseOption("--late", "'" + text + "' is neither stand nor catch-up");
  }
  return text == "stand" ? Late::stand : Late::catchUp;
}

}  // namespace

double positiveNumber(const std::string& option, const std::string& text) {
  double value = 0.0;
  if (!parseNumber(text, value) || value <= 0) {
    refuseOption(option, "'" + text + "' is not a number above 0");
  }
  return value;
}

std::size_t count(const std::string& option, const std::string& text) {
  const int value = wholeNumber(text);
  if (value < 1) {
    refuseOption(option, "'" + text + "' is not a whole number above 0");
  }
  return static_cast<std::size_t>(value);
}

std::uint32_t tick(const std::string& text) {
  const bool hexadecimal = text.rfind("0x", 0) == 0;
  std::uint32_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, failure] =
      std::from_chars(text.data() + (hexadecimal ? 2 : 0), end, value, hexadecimal ? 16 : 10);
  if (failure != std::errc() || stop != end) {
    refuseOption("--start", "'" + text + "' is not a tick from 0 to 4294967295 (0xFFFFFFFF)");
  }
  return value;
}

void addMachine(CLI::App& command, std::string& path) {
  addArgument(command, "MACHINE", path,
              "The machine: a robot description (URDF) or a machine file (YAML)");
}

void addMotions(CLI::App& command, std::vector<std::string>& paths, MotionOptions& options) {
  addArguments(
      command, "MOTION", paths, true,
      "Motion files (YAML): a trajectory, command batches, or FILE:NAME for a named motion");
  addFlag(command, "--ignore-unknown-joints", options.ignoreUnknownJoints,
          "Leave out joints of trajectories that the machine cannot move, and report them");
}

void addCycle(CLI::App& command, std::uint32_t& cycleMs) {
  constexpr std::uint32_t longestCycleMs = 1000;
  addOption(command, {"--cycle", "TIME", "Control cycle, 1ms to 1s", "10ms"},
            [&cycleMs](const std::string& text) {
              cycleMs = milliseconds("--cycle", text, 1, longestCycleMs);
            });
}

void addTiming(CLI::App& command, Timing& timing) {
  constexpr std::uint32_t longestApproachMs = 70'000'000;
  addOption(command,
            {"--approach,--lead", "TIME",
             "Time to approach the first points of trajectories: 500ms, 2s (default: the time that "
             "they need)",
             ""},
            [&timing](const std::string& text) {
              timing.approachMs = milliseconds("--approach", text, 1, longestApproachMs);
            });
  addOption(
      command,
      {"--interpolation", "message|linear|smooth",
       "The path between points: message uses the velocities and accelerations that points have, "
       "linear straight lines; smooth gives velocities to points without them",
       "message"},
      [&timing](const std::string& text) { timing.interpolation = interpolationNamed(text); });
  addOption(command,
            {"--scale", "none|auto",
             "auto stretches each trajectory and batch in time by the smallest factor that keeps "
             "velocities and known accelerations within their limits",
             "none"},
            [&timing](const std::string& text) {
              if (text != "none" && text != "auto") {
                refuseOption("--scale", "'" + text + "' is neither none nor auto");
              }
              timing.scales = text == "auto";
            });
}

void addCycleScheduling(CLI::App& command, ThreadScheduling& scheduling) {
  addOption(command,
            {"--priority", "NUMBER",
             "Real-time priority of the cycle thread, 2 to 99; the command thread has one less",
             std::to_string(scheduling.priority)},
            [&scheduling](const std::string& text) { scheduling.priority = priority(text); });
  addOption(command, {"--affinity", "CPU", "The processor for the cycle thread (default: any)", ""},
            [&scheduling](const std::string& text) { scheduling.processor = processor(text); });
}

void addLate(CLI::App& command, Late& late) {
  addOption(command,
            {"--late", "stand|catch-up",
             "After a stall of the process: stand continues where the motion was, catch-up catches "
             "up with the clock",
             "stand"},
            [&late](const std::string& text) { late = lateNamed(text); });
}

void addGuard(CLI::App& command, GuardMode& guard) {
  addOption(command,
            {"--guard", "hold|warn|off",
             "On a step beyond a maximum velocity: hold brings the actuator to rest and holds it, "
             "warn only reports it, off does nothing",
             "hold"},
            [&guard](const std::string& text) { guard = guardNamed(text); });
}

void addPreferenceDirectory(CLI::App& command, std::string& path) {
  addOption(command,
            {"--directory", "DIR", "Folder for preference files; created if it is missing", path},
            path);
}

void addPool(CLI::App& command, const char* help, std::string& name) {
  addOption(command, {"--pool", "NAME", help, ""}, name);
}

void addPoolMode(CLI::App& command, std::optional<std::uint32_t>& mode) {
  addOption(
      command,
      {"--pool-mode", "600|640|604|644",
       "File mode of the device pool, which decides who may watch (default: 644 less the umask)",
       ""},
      [&mode](const std::string& text) {
        if (text != "600" && text != "640" && text != "604" && text != "644") {
          refuseOption("--pool-mode", "'" + text + "' is not 600, 640, 604 or 644");
        }
        mode = static_cast<std::uint32_t>(std::stoul(text, nullptr, 8));
      });
}

}  // namespace host
