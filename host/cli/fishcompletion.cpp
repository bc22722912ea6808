#include <fmt/format.h>

#include <algorithm>

#include "host/cli/completionwords.h"

namespace host {
namespace {

/// Judge the words before the cursor: their second one is the subcommand.
constexpr char fishBegin[] = R"(# Completion of torvex for fish.
function __torvex_is
    set -l given (commandline -opc)
    test (count $given) -ge 2; and contains -- $given[2] $argv
end
function __torvex_begins
    test (count (commandline -opc)) -eq 2; and __torvex_is $argv
end
function __torvex_is_bare
    test (count (commandline -opc)) -eq 1
end
function __torvex_machine
    set -l given (commandline -opc)
    set -l at (contains -i -- --machine $given)
    test -n "$at"; and test $at -lt (count $given)
    and printf '%s\n' --machine $given[(math $at + 1)]
    string match -- '--machine=*' $given
end
complete -c torvex -f
)";

std::string fishValue(const UsageOption& option) {
  const std::vector<std::string> choices = option.choices();
  return longNames(option).front() == "--machine"
             ? " -x -a " + shellQuoted(fmt::format("({})", printMachines))
         : option.type.empty()  ? ""
         : !choices.empty()     ? " -x -a " + shellQuoted(joinedWords(choices))
         : option.takesFolder() ? " -x -a '(__fish_complete_directories)'"
         : option.takesPath()   ? " -r -F"
                                : " -x";
}

/// Takes files where nothing else is known of its arguments.
bool takesFiles(const UsageCommand& command) {
  return firstArgument(command) != nullptr &&
         std::none_of(completionSources.begin(), completionSources.end(),
                      [&](const CompletionSource& source) {
                        return !source.orFiles &&
                               fmt::format("|{}|", source.takers).find("|" + command.name + "|") !=
                                   std::string::npos;
                      });
}

std::string fishCommand(const UsageCommand& command) {
  const std::string inside = fmt::format("'__torvex_is {}'", command.name);
  const std::string words = firstWords(command);
  std::string script = fmt::format("complete -c torvex -n __torvex_is_bare -a {} -d {}\n",
                                   command.name, shellQuoted(command.what));
  if (!words.empty()) {
    script += fmt::format("complete -c torvex -n '__torvex_begins {}' -a {}\n", command.name,
                          shellQuoted(words));
  }
  if (takesFiles(command)) {
    const std::string notFirst =
        words.empty() ? "" : fmt::format("; and not __torvex_begins {}", command.name);
    script += fmt::format("complete -c torvex -n '__torvex_is {}{}' -F\n", command.name, notFirst);
  }
  for (const UsageOption& option : command.options) {
    if (option.isArgument) {
      continue;
    }
    for (const std::string& name : longNames(option)) {
      script += fmt::format("complete -c torvex -n {} -l {} -d {}{}\n", inside, name.substr(2),
                            shellQuoted(option.what), fishValue(option));
    }
  }
  return script;
}

}  // namespace

std::string fishCompletion(const std::vector<UsageCommand>& commands) {
  std::string script = fishBegin;
  for (const UsageCommand& command : commands) {
    script += fishCommand(command);
  }
  script += fmt::format(
      "complete -c torvex -n __torvex_is_bare -a help -d 'Print the help of a subcommand'\n"
      "complete -c torvex -n '__torvex_begins help' -a {}\n",
      shellQuoted(commandNames(commands)));
  for (const CompletionSource& source : completionSources) {
    std::string takers = source.takers;
    std::replace(takers.begin(), takers.end(), '|', ' ');
    const bool comesSecond = takers == "bridge";
    script += fmt::format("complete -c torvex -n '__torvex_is {}{}' -a {}\n", takers,
                          comesSecond ? "; and not __torvex_begins bridge" : "",
                          shellQuoted(fmt::format("({})", source.printing("(__torvex_machine)"))));
  }
  return script;
}

}  // namespace host
