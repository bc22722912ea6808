#include <fmt/format.h>

#include "host/cli/completionwords.h"

namespace host {
namespace {

std::string optionNames(const UsageCommand& command) {
  std::string names;
  for (const UsageOption& option : command.options) {
    names += option.isArgument ? "" : joinedWords(longNames(option)) + " ";
  }
  return names;
}

/// What may follow an option that takes a value.
std::string bashValues(const UsageCommand& command) {
  std::string cases;
  for (const UsageOption& option : command.options) {
    if (option.isArgument || option.type.empty()) {
      continue;
    }
    const std::string name = longNames(option).front();
    const std::string values =
        name == "--machine"         ? fmt::format("print={}", shellQuoted(printMachines))
        : !option.choices().empty() ? fmt::format("words=({})", joinedWords(option.choices()))
        : option.takesFolder()      ? "compopt -o dirnames +o default"
        : option.takesPath()        ? "return"
                                    : "compopt +o default";
    cases += fmt::format("    {}:{}) {} ;;\n", command.name, name, values);
  }
  return cases;
}

std::string bashArguments(const UsageCommand& command) {
  if (firstArgument(command) == nullptr) {
    return fmt::format("      {}:*) compopt +o default ;;\n", command.name);
  }
  const std::string words = firstWords(command);
  return words.empty() ? "" : fmt::format("      {}:2) words=({}) ;;\n", command.name, words);
}

std::string bashSources() {
  std::string cases;
  for (const CompletionSource& source : completionSources) {
    std::string takers = source.takers;
    for (std::size_t at = 0; (at = takers.find('|', at)) != std::string::npos; at += 3) {
      takers.replace(at, 1, ":*|");
    }
    cases += fmt::format("      {}:*) print={} {};;\n", takers,
                         shellQuoted(source.printing("\"${machine[@]}\"")),
                         source.orFiles ? "" : "; compopt +o default ");
  }
  return cases;
}

/// Reads the words up to the cursor without their quotes, since bash also breaks them at ':' and
/// '='.
constexpr char bashBegin[] = R"(# Completion of torvex for bash.
_torvex() {
  local line=${COMP_LINE:0:COMP_POINT} raw= word= quote= letter i
  local -a given=() machine=() words=()
  COMPREPLY=()
  for ((i = 0; i < ${#line}; i++)); do
    letter=${line:i:1}
    if [[ -z $quote && $letter == [[:blank:]] ]]; then
      [[ -z $raw ]] || given+=("$word")
      raw= word=
      continue
    fi
    raw+=$letter
    if [[ $letter == "$quote" ]]; then
      quote=
    elif [[ -z $quote && $letter == [\"\'] ]]; then
      quote=$letter
    elif [[ $quote != \' && $letter == \\ ]]; then
      ((++i))
      raw+=${line:i:1}
      word+=${line:i:1}
    else
      word+=$letter
    fi
  done
  local command=${given[1]-} before=${given[${#given[@]} - 1]} print=
  for ((i = 2; i < ${#given[@]}; i++)); do
    case ${given[i]} in
      --machine) machine=(--machine "${given[i + 1]-}") ;;
      --machine=*) machine=("${given[i]}") ;;
    esac
  done
  if [[ $word == --*=* ]]; then
    before=${word%%=*} word=${word#*=} raw=${raw#*=}
  fi
)";

/// Bash replaces the last word after a break, as it was typed.
constexpr char bashEnd[] = R"(  [[ -z $print ]] || mapfile -t words < <(eval "$print")
  local breaks=${COMP_WORDBREAKS//[!:=@]/} begin= reply
  if [[ -z $quote && -n $breaks ]]; then
    begin=${raw%"${raw##*[$breaks]}"}
  fi
  for reply in "${words[@]}"; do
    [[ $reply == "$word"* ]] || continue
    [[ -n $quote ]] || printf -v reply %q "$reply"
    COMPREPLY+=("${reply#"$begin"}")
  done
}
complete -o default -F _torvex torvex
)";

}  // namespace

std::string bashCompletion(const std::vector<UsageCommand>& commands) {
  std::string options;
  std::string values;
  std::string arguments;
  for (const UsageCommand& command : commands) {
    options += fmt::format("        {}) words=({}) ;;\n", command.name, optionNames(command));
    values += bashValues(command);
    arguments += bashArguments(command);
  }
  return bashBegin +
         fmt::format(
             "  if ((${{#given[@]}} < 2)) || [[ $command == help ]]; then\n"
             "    words=({})\n"
             "  else case $command:$before in\n{}"
             "    *) if [[ $word == -* ]]; then\n"
             "      case $command in\n{}      esac\n"
             "    else case $command:${{#given[@]}} in\n{}{}"
             "    esac; fi ;;\n"
             "  esac; fi\n",
             commandNames(commands), values, options, arguments, bashSources()) +
         bashEnd;
}

}  // namespace host
