#include "host/cli/completion.h"

#include <fmt/format.h>

#include <algorithm>

namespace host {
namespace {

/// Commands whose arguments are what another one prints, a line each.
struct Source {
  const char* takers;
  const char* print;
};

constexpr char printMachines[] = "torvex ps 2>/dev/null | sed '1d;s/ .*//'";
constexpr Source sources[] = {
    {"get|watch", "torvex get --keys '*' $machine 2>/dev/null"},
    {"set|send|stop|hold|release",
     "torvex get --keys --actuators '*' $machine 2>/dev/null | sed 's|/Value$||'"},
    {"bridge", printMachines}};

std::string shellQuoted(const std::string& text) {
  std::string result = "'";
  for (const char letter : text) {
    result += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
  }
  return result + "'";
}

std::string joined(const std::vector<std::string>& words) {
  return fmt::format("{}", fmt::join(words, " "));
}

/// As it is documented: the first long one, and also that which turns a flag off.
std::vector<std::string> longNames(const UsageOption& option) {
  std::vector<std::string> names;
  for (const std::string& name : option.names) {
    if (name.rfind("--", 0) == 0 && (names.empty() || option.type.empty())) {
      names.push_back(name);
    }
  }
  return names;
}

std::string optionNames(const UsageCommand& command) {
  std::string names;
  for (const UsageOption& option : command.options) {
    names += option.isArgument ? "" : joined(longNames(option)) + " ";
  }
  return names;
}

/// The commands, and `help`, whose argument is one of them.
std::string commandNames(const std::vector<UsageCommand>& commands) {
  std::string names;
  for (const UsageCommand& command : commands) {
    names += command.name + " ";
  }
  return names + "help";
}

/// Of the first argument, which may be one of some words.
std::vector<std::string> argumentChoices(const UsageCommand& command) {
  for (const UsageOption& option : command.options) {
    if (option.isArgument) {
      return option.choices();
    }
  }
  return {};
}

/// What may come behind a word of the command line: choices, or a value of which nothing is known.
std::string bashCases(const UsageCommand& command) {
  std::string cases;
  for (const UsageOption& option : command.options) {
    if (option.isArgument && option.choices().empty()) {
      continue;
    }
    // Before the first argument is the command itself.
    const std::string before = option.isArgument ? command.name : longNames(option).front();
    if (!option.choices().empty()) {
      cases += fmt::format("    {}:{}) words={} ;;\n", command.name, before,
                           shellQuoted(joined(option.choices())));
    } else if (!option.type.empty() && before != "--machine") {
      cases += fmt::format("    {}:{}) return ;;\n", command.name, before);
    }
  }
  return cases;
}

std::string bashSources() {
  std::string cases;
  for (const Source& source : sources) {
    cases += fmt::format("      {}) print={} ;;\n", source.takers, shellQuoted(source.print));
  }
  return cases;
}

std::string bashScript(const std::vector<UsageCommand>& commands) {
  std::string options;
  std::string cases;
  for (const UsageCommand& command : commands) {
    options +=
        fmt::format("      {}) words={} ;;\n", command.name, shellQuoted(optionNames(command)));
    cases += bashCases(command);
  }
  return fmt::format(
      "# Completion of torvex for bash.\n"
      "_torvex() {{\n"
      "  local word=${{COMP_WORDS[COMP_CWORD]}} before=${{COMP_WORDS[COMP_CWORD-1]}}\n"
      "  local words= print= machine= line i\n"
      "  if ((COMP_CWORD == 1)) || [[ $before == help ]]; then\n"
      "    COMPREPLY=($(compgen -W {0} -- \"$word\"))\n"
      "    return\n"
      "  fi\n"
      "  for ((i = 3; i < COMP_CWORD; i++)); do\n"
      "    [[ ${{COMP_WORDS[i-1]}} == --machine ]] && machine=\"--machine ${{COMP_WORDS[i]}}\"\n"
      "  done\n"
      "  case ${{COMP_WORDS[1]}}:$before in\n{1}"
      "    *:--machine) print={4} ;;\n"
      "  esac\n"
      "  if [[ $word == -* ]]; then\n"
      "    case ${{COMP_WORDS[1]}} in\n{2}    esac\n"
      "  elif [[ -z $words$print ]]; then\n"
      "    case ${{COMP_WORDS[1]}} in\n{3}    esac\n"
      "  fi\n"
      "  if [[ -n $print ]]; then\n"
      "    while IFS= read -r line; do\n"
      "      [[ $line == \"$word\"* ]] && COMPREPLY+=(\"$(printf %q \"$line\")\")\n"
      "    done < <(eval \"$print\")\n"
      "    return\n"
      "  fi\n"
      "  COMPREPLY=($(compgen -W \"$words\" -- \"$word\"))\n"
      "}}\n"
      "complete -o default -F _torvex torvex\n",
      shellQuoted(commandNames(commands)), cases, options, bashSources(),
      shellQuoted(printMachines));
}

/// What a command's `_arguments` is told of its options.
std::string zshOptions(const UsageCommand& command) {
  std::string options;
  for (const UsageOption& option : command.options) {
    if (option.isArgument || longNames(option).front() == "--help") {
      continue;
    }
    std::string what = option.what;
    for (const char special : {'[', ']', ':'}) {
      std::replace(what.begin(), what.end(), special, ' ');
    }
    const std::vector<std::string> choices = option.choices();
    const std::string values = option.type.empty() ? ""
                               : choices.empty()   ? ":value:_files"
                                                   : fmt::format(":value:({})", joined(choices));
    for (const std::string& name : longNames(option)) {
      options +=
          fmt::format(" \\\n      {}", shellQuoted(fmt::format("{}[{}]{}", name, what, values)));
    }
  }
  return options;
}

std::string zshScript(const std::vector<UsageCommand>& commands) {
  std::string names;
  std::string options;
  for (const UsageCommand& command : commands) {
    const std::string firstWords = joined(argumentChoices(command));
    names += "    " + shellQuoted(command.name + ":" + command.what) + "\n";
    options += fmt::format("    {}) _arguments{} '*: :->argument'", command.name,
                           firstWords.empty() ? "" : fmt::format(" '1: :({})'", firstWords));
    options += zshOptions(command) + " ;;\n";
  }
  options += fmt::format("    help) _arguments '1: :({})' ;;\n", commandNames(commands));
  std::string arguments;
  for (const Source& source : sources) {
    arguments +=
        fmt::format("    {}) compadd -- ${{(f)\"$({})\"}} ;;\n", source.takers, source.print);
  }
  return fmt::format(
      "#compdef torvex\n"
      "# Completion of torvex for zsh.\n"
      "local state machine=\n"
      "if ((CURRENT == 2)); then\n"
      "  local -a commands=(\n{0}    'help:Help of a subcommand'\n  )\n"
      "  _describe subcommand commands\n"
      "  return\n"
      "fi\n"
      "local command=$words[2]\n"
      "shift words\n"
      "((CURRENT--))\n"
      "case $command in\n{1}esac\n"
      "if [[ $state == argument ]]; then\n"
      "  case $command in\n{2}  esac\n"
      "  _files\n"
      "fi\n",
      names, options, arguments);
}

std::string fishScript(const std::vector<UsageCommand>& commands) {
  std::string script = "# Completion of torvex for fish.\n";
  for (const UsageCommand& command : commands) {
    script += fmt::format("complete -c torvex -n __fish_use_subcommand -f -a {} -d {}\n",
                          command.name, shellQuoted(command.what));
    const std::string inside = shellQuoted("__fish_seen_subcommand_from " + command.name);
    if (const std::string words = joined(argumentChoices(command)); !words.empty()) {
      script += fmt::format(
          "complete -c torvex -n '__fish_seen_subcommand_from {}; and not "
          "__fish_seen_subcommand_from {}' -f -a '{}'\n",
          command.name, words, words);
    }
    for (const UsageOption& option : command.options) {
      if (option.isArgument) {
        continue;
      }
      const std::vector<std::string> choices = option.choices();
      const std::string values = option.type.empty() ? ""
                                 : choices.empty()   ? " -r"
                                                     : " -x -a " + shellQuoted(joined(choices));
      for (const std::string& name : longNames(option)) {
        script += fmt::format("complete -c torvex -n {} -l {} -d {}{}\n", inside, name.substr(2),
                              shellQuoted(option.what), values);
      }
    }
  }
  script += fmt::format(
      "complete -c torvex -n __fish_use_subcommand -f -a help -d 'Help of a subcommand'\n"
      "complete -c torvex -n '__fish_seen_subcommand_from help' -f -a {}\n",
      shellQuoted(commandNames(commands)));
  for (const Source& source : sources) {
    std::string takers = source.takers;
    std::replace(takers.begin(), takers.end(), '|', ' ');
    script += fmt::format("complete -c torvex -n '__fish_seen_subcommand_from {}' -a {}\n", takers,
                          shellQuoted(fmt::format("({})", source.print)));
  }
  return script;
}

}  // namespace

std::string completionScript(const std::string& shell, const std::vector<UsageCommand>& commands) {
  return shell == "bash"   ? bashScript(commands)
         : shell == "zsh"  ? zshScript(commands)
         : shell == "fish" ? fishScript(commands)
                           : std::string();
}

}  // namespace host
