#pragma once

#include <array>
#include <string>
#include <vector>

#include "host/cli/usage.h"

namespace host {

/// Commands whose arguments are lines that another command prints.
struct CompletionSource {
  /// "get|watch"
  const char* takers;
  /// In it, {} stands for the option `--machine` of the command line, if it has one.
  const char* print;
  bool orFiles;

  /// `machineWords` is how a shell writes that option.
  [[nodiscard]] std::string printing(const char* machineWords) const;
};

constexpr char printMachines[] = "torvex ps 2>/dev/null | sed '1d;s/ .*//'";
constexpr char printActuators[] =
    "torvex get --keys --actuators '*' {} 2>/dev/null | sed 's|/Value$||'";
constexpr std::array<CompletionSource, 4> completionSources = {
    {{"get|watch", "torvex get --keys '*' {} 2>/dev/null", false},
     {"set|stop|hold|release", printActuators, false},
     {"send", printActuators, true},
     {"bridge", printMachines, true}}};

/// For bash, zsh and fish.
std::string shellQuoted(const std::string& text);

std::string joinedWords(const std::vector<std::string>& words);

/// The first long name, as it is documented, and for a flag also that which turns it off.
std::vector<std::string> longNames(const UsageOption& option);

/// The names of the commands, and `help`.
std::string commandNames(const std::vector<UsageCommand>& commands);

/// Null when the command has no arguments.
const UsageOption* firstArgument(const UsageCommand& command);

/// The words that the first argument may be; none where it may be anything.
std::string firstWords(const UsageCommand& command);

std::string bashCompletion(const std::vector<UsageCommand>& commands);
std::string zshCompletion(const std::vector<UsageCommand>& commands);
std::string fishCompletion(const std::vector<UsageCommand>& commands);

}  // namespace host
