#include "host/cli/completionwords.h"

#include <fmt/format.h>

#include <algorithm>

namespace host {

std::string CompletionSource::printing(const char* machineWords) const {
  return fmt::format(fmt::runtime(print), machineWords);
}

std::string shellQuoted(const std::string& text) {
  std::string result = "'";
  for (const char letter : text) {
    result += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
  }
  return result + "'";
}

std::string joinedWords(const std::vector<std::string>& words) {
  return fmt::format("{}", fmt::join(words, " "));
}

std::vector<std::string> longNames(const UsageOption& option) {
  std::vector<std::string> names;
  for (const std::string& name : option.names) {
    if (name.rfind("--", 0) == 0 && (names.empty() || option.type.empty())) {
      names.push_back(name);
    }
  }
  return names;
}

std::string commandNames(const std::vector<UsageCommand>& commands) {
  std::string names;
  for (const UsageCommand& command : commands) {
    names += command.name + " ";
  }
  return names + "help";
}

const UsageOption* firstArgument(const UsageCommand& command) {
  const auto found = std::find_if(command.options.begin(), command.options.end(),
                                  [](const UsageOption& option) { return option.isArgument; });
  return found == command.options.end() ? nullptr : &*found;
}

std::string firstWords(const UsageCommand& command) {
  const UsageOption* const argument = firstArgument(command);
  return argument == nullptr ? "" : joinedWords(argument->choices());
}

}  // namespace host
