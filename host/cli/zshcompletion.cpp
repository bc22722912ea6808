#include <fmt/format.h>

#include "host/cli/completionwords.h"

namespace host {
namespace {

std::string zshEscaped(const std::string& text) {
  std::string result;
  for (const char letter : text) {
    result += letter == '[' || letter == ']' || letter == ':' || letter == '\\' ? "\\" : "";
    result += letter;
  }
  return result;
}

/// What follows an option, as `_arguments` is told it.
std::string zshValue(const UsageOption& option) {
  const std::vector<std::string> choices = option.choices();
  return longNames(option).front() == "--machine" ? ":machine:->machine"
         : option.type.empty()                    ? ""
         : !choices.empty()                       ? fmt::format(":value:({})", joinedWords(choices))
         : option.takesFolder()                   ? ":folder:_files -/"
         : option.takesPath()                     ? ":file:_files"
                                                  : fmt::format(":{}: ", zshEscaped(option.type));
}

std::string zshOptions(const UsageCommand& command) {
  std::string options;
  for (const UsageOption& option : command.options) {
    if (option.isArgument) {
      continue;
    }
    for (const std::string& name : longNames(option)) {
      const std::string text =
          fmt::format("{}{}{}[{}]{}", option.isRepeatable ? "*" : "", name,
                      option.type.empty() ? "" : "=", zshEscaped(option.what), zshValue(option));
      options += fmt::format(" \\\n      {}", shellQuoted(text));
    }
  }
  return options;
}

std::string zshArguments(const UsageCommand& command) {
  if (firstArgument(command) == nullptr) {
    return "";
  }
  const std::string words = firstWords(command);
  return fmt::format("{} '*: :->argument'", words.empty() ? "" : fmt::format(" '1: :({})'", words));
}

constexpr char zshBegin[] = R"(#compdef torvex
# Completion of torvex for zsh.
_torvex() {
  local curcontext=$curcontext state state_descr line command=$words[2]
  local -a machine
  local -i at
  typeset -A opt_args
)";

constexpr char zshMachine[] = R"(  at=${words[(I)--machine]}
  ((at > 2 && at < CURRENT - 1)) && machine=(--machine "${(Q)words[at+1]}")
  at=${words[(I)--machine=*]}
  ((at > 2 && at < CURRENT)) && machine=("${(Q)words[at]}")
  shift words
  ((CURRENT--))
)";

constexpr char zshEnd[] = R"(}
if [[ $funcstack[1] == _torvex ]]; then
  _torvex "$@"
else
  compdef _torvex torvex
fi
)";

std::string zshPrint(const std::string& print) {
  return fmt::format("compadd -- ${{(f)\"$({})\"}}", print);
}

}  // namespace

std::string zshCompletion(const std::vector<UsageCommand>& commands) {
  std::string names;
  std::string options;
  for (const UsageCommand& command : commands) {
    names += "      " + shellQuoted(command.name + ":" + command.what) + "\n";
    options += fmt::format("    {}) _arguments{}{} ;;\n", command.name, zshArguments(command),
                           zshOptions(command));
  }
  std::string arguments;
  for (const CompletionSource& source : completionSources) {
    arguments +=
        fmt::format("    argument:{}) {}{} ;;\n", fmt::format("({})", source.takers),
                    zshPrint(source.printing("$machine")), source.orFiles ? "; _files" : "");
  }
  return zshBegin +
         fmt::format(
             "  if ((CURRENT == 2)); then\n"
             "    local -a commands=(\n{}      'help:Print the help of a subcommand'\n    )\n"
             "    _describe subcommand commands\n"
             "    return\n"
             "  fi\n",
             names) +
         zshMachine +
         fmt::format(
             "  case $command in\n{}    help) _arguments '1: :({})' ;;\n  esac\n"
             "  case $state:$command in\n    machine:*) {} ;;\n{}    argument:*) _files ;;\n"
             "  esac\n",
             options, commandNames(commands), zshPrint(printMachines), arguments) +
         zshEnd;
}

}  // namespace host
