#include "host/cli/completion.h"

#include <fmt/format.h>

#include <algorithm>

namespace host {
namespace {

/// Those whose arguments are keys.
constexpr char takeKeys[] = "get|set|send|watch";
constexpr char printKeys[] = "torvex get --keys '*' 2>/dev/null";

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

std::string optionNames(const UsageCommand& command) {
  std::string names;
  for (const UsageOption& option : command.options) {
    names += option.isArgument ? "" : joined(option.names) + " ";
  }
  return names;
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

std::string bashScript(const std::vector<UsageCommand>& commands) {
  std::string names;
  std::string options;
  std::string choices;
  for (const UsageCommand& command : commands) {
    names += command.name + " ";
    options +=
        fmt::format("      {}) words={} ;;\n", command.name, shellQuoted(optionNames(command)));
    for (const UsageOption& option : command.options) {
      if (!option.choices().empty()) {
        // Before the first argument is the command itself.
        choices += fmt::format("    {}:{}) words={} ;;\n", command.name,
                               option.isArgument ? command.name : option.names.back(),
                               shellQuoted(joined(option.choices())));
      }
    }
  }
  return fmt::format(
      "# Completion of torvex for bash.\n"
      "_torvex() {{\n"
      "  local word=${{COMP_WORDS[COMP_CWORD]}} before=${{COMP_WORDS[COMP_CWORD-1]}} words=\n"
      "  if ((COMP_CWORD == 1)); then\n"
      "    COMPREPLY=($(compgen -W {0} -- \"$word\"))\n"
      "    return\n"
      "  fi\n"
      "  case ${{COMP_WORDS[1]}}:$before in\n{1}  esac\n"
      "  if [[ $word == -* ]]; then\n"
      "    case ${{COMP_WORDS[1]}} in\n{2}    esac\n"
      "  elif [[ -z $words && ${{COMP_WORDS[1]}} == @({3}) ]]; then\n"
      "    local key\n"
      "    COMPREPLY=()\n"
      "    while IFS= read -r key; do\n"
      "      [[ $key == \"$word\"* ]] && COMPREPLY+=(\"$(printf %q \"$key\")\")\n"
      "    done < <({4})\n"
      "    return\n"
      "  fi\n"
      "  COMPREPLY=($(compgen -W \"$words\" -- \"$word\"))\n"
      "}}\n"
      "complete -o default -F _torvex torvex\n",
      shellQuoted(names), choices, options, takeKeys, printKeys);
}

std::string zshScript(const std::vector<UsageCommand>& commands) {
  std::string names;
  std::string options;
  for (const UsageCommand& command : commands) {
    const std::string firstWords = joined(argumentChoices(command));
    names += "    " + shellQuoted(command.name + ":" + command.what) + "\n";
    options += fmt::format("    {}) _arguments{} '*: :->argument'", command.name,
                           firstWords.empty() ? "" : fmt::format(" '1: :({})'", firstWords));
    for (const UsageOption& option : command.options) {
      if (option.isArgument || option.names.back() == "--help") {
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
      options += fmt::format(
          " \\\n      {}", shellQuoted(fmt::format("{}[{}]{}", option.names.back(), what, values)));
    }
    options += " ;;\n";
  }
  return fmt::format(
      "#compdef torvex\n"
      "# Completion of torvex for zsh.\n"
      "local state\n"
      "if ((CURRENT == 2)); then\n"
      "  local -a commands=(\n{0}  )\n"
      "  _describe subcommand commands\n"
      "  return\n"
      "fi\n"
      "local command=$words[2]\n"
      "shift words\n"
      "((CURRENT--))\n"
      "case $command in\n{1}esac\n"
      "if [[ $state == argument ]]; then\n"
      "  if [[ $command == ({2}) ]]; then\n"
      "    compadd -- ${{(f)\"$({3})\"}}\n"
      "  fi\n"
      "  _files\n"
      "fi\n",
      names, options, takeKeys, printKeys);
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
      script += fmt::format("complete -c torvex -n {} -l {} -d {}{}\n", inside,
                            option.names.back().substr(2), shellQuoted(option.what), values);
    }
  }
  std::string takers = takeKeys;
  std::replace(takers.begin(), takers.end(), '|', ' ');
  return script + fmt::format("complete -c torvex -n '__fish_seen_subcommand_from {}' -a {}\n",
                              takers, shellQuoted(fmt::format("({})", printKeys)));
}

}  // namespace

std::string completionScript(const std::string& shell, const std::vector<UsageCommand>& commands) {
  return shell == "bash"   ? bashScript(commands)
         : shell == "zsh"  ? zshScript(commands)
         : shell == "fish" ? fishScript(commands)
                           : std::string();
}

}  // namespace host
