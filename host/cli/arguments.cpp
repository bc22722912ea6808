#include "host/cli/arguments.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>
#include <utility>

#include "host/base/closest.h"
#include "host/base/visible.h"
#include "host/cli/output.h"
#include "host/cli/status.h"
#include "host/cli/usage.h"

namespace host {
namespace {

/// Help was asked for, and shown.
constexpr int helpStatus = -1;

/// What is wrong with it; empty: nothing.
std::string emptyFault(const std::string& text) {
  return text.empty() ? "is empty" : "";
}

/// The same of the value of an option: where it was left out, the parser takes the next word.
std::string valueFault(const std::string& text) {
  return text.rfind("--", 0) == 0 ? "'" + text + "' begins as an option, not as a value"
                                  : emptyFault(text);
}

/// The option "--NAME", which is there. The parser's own search ends the process when memory runs
/// out.
CLI::Option* optionNamed(CLI::App& command, const std::string& name) {
  const auto named = [&name](const CLI::Option* option) {
    return option->check_lname(name.substr(2));
  };
  return command.get_options(named).front();
}

}  // namespace

CLI::App& addSubcommand(CLI::App& app, const char* name, const char* what,
                        const std::string& footer, const Command& run, Command& chosen) {
  CLI::App& command = *app.add_subcommand(name, what);
  command.footer(footer);
  command.callback([run, &chosen] { chosen = run; });
  return command;
}

void addArgument(CLI::App& command, const char* name, std::string& value, const char* what) {
  command.add_option(name, value, what)->required()->check(emptyFault);
}

void addArgument(CLI::App& command, const OptionText& text, std::string& value) {
  command.add_option(text.name, value, text.what)
      ->required()
      ->type_name(text.type)
      ->check(emptyFault);
}

void addArguments(CLI::App& command, const char* name, std::vector<std::string>& values,
                  bool mustBeGiven, const char* what) {
  command.add_option(name, values, what)->required(mustBeGiven)->check(emptyFault);
}

void addFlag(CLI::App& command, const char* name, bool& flag, const char* what) {
  command.add_flag(name, flag, what);
}

void addOption(CLI::App& command, const OptionText& text, std::string& value) {
  command.add_option(text.name, value, text.what)
      ->type_name(text.type)
      ->default_str(text.otherwise)
      ->check(valueFault);
}

void addOption(CLI::App& command, const OptionText& text, const Take& take) {
  command.add_option_function<std::string>(text.name, take, text.what)
      ->type_name(text.type)
      ->default_str(text.otherwise)
      ->check(valueFault);
}

void addRepeatable(CLI::App& command, const OptionText& text, const Take& take) {
  command
      .add_option_function<std::vector<std::string>>(
          text.name,
          [take](const std::vector<std::string>& texts) {
            std::for_each(texts.begin(), texts.end(), take);
          },
          text.what)
      ->type_name(text.type)
      ->expected(1)
      ->take_all()
      ->check(valueFault);
}

void addNeed(CLI::App& command, const std::vector<const char*>& options, const char* needed) {
  for (const char* const option : options) {
    optionNamed(command, option)->needs(optionNamed(command, needed));
  }
}

void addExclusion(CLI::App& command, const char* option, const char* other) {
  optionNamed(command, option)->excludes(optionNamed(command, other));
}

void refuseOption(const std::string& option, const std::string& why) {
  throw CLI::ValidationError(option, why);
}

namespace {

std::vector<std::string> subcommandNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const UsageCommand& command : usageOf(app)) {
    names.push_back(command.name);
  }
  return names;
}

int refuseUsage(const std::string& what) {
  complain("torvex: error: " + visible(what) + "; see --help\n");
  return badInputStatus;
}

/// What the parser did not expect: most often an option that is spelled otherwise.
std::string unexpected(const CLI::App& app) {
  std::string text;
  for (const CLI::App* const command : app.get_subcommands()) {
    std::vector<std::string> names;
    for (const CLI::Option* const option : command->get_options()) {
      for (const std::string& name : option->get_lnames()) {
        names.push_back("--" + name);
      }
    }
    for (const std::string& word : command->remaining()) {
      const std::string option = word.substr(0, word.find('='));
      text += fmt::format("{}'{}' is not expected{}", text.empty() ? "" : "; ", word,
                          word.rfind('-', 0) == 0 ? didYouMean(option, names) : "");
    }
  }
  return text;
}

/// Null when there is none.
const CLI::App* subcommandNamed(const CLI::App& app, const std::string& name) {
  const auto found =
      app.get_subcommands([&name](const CLI::App* command) { return command->get_name() == name; });
  return found.empty() ? nullptr : found.front();
}

/// "help", alone or with a subcommand.
int showHelp(const CLI::App& app, const std::string& name) {
  const CLI::App* const command = name.empty() ? &app : subcommandNamed(app, name);
  if (command == nullptr) {
    return refuseUsage(
        fmt::format("there is no subcommand '{}'{}", name, didYouMean(name, subcommandNames(app))));
  }
  say(command->help(command == &app ? "" : app.get_name()));
  return okStatus;
}

/// Of an option that has no value, or too many; `said` begins with its name.
std::string mismatch(const CLI::App& app, const std::string& said) {
  const std::string name = said.substr(0, said.find(':'));
  for (const CLI::App* const command : app.get_subcommands()) {
    if (const CLI::Option* const option = command->get_option_no_throw(name)) {
      return option->count() > 1 ? name + " is given more than once"
                                 : fmt::format("{} needs {}", name, option->get_type_name());
    }
  }
  return said;
}

/// Whether a word is "--NAME=", of an option that takes a value.
bool isEmptyValue(const CLI::App& command, const std::string& word) {
  if (word.rfind("--", 0) != 0 || word.find('=') != word.size() - 1) {
    return false;
  }
  const CLI::Option* const option = command.get_option_no_throw(word.substr(0, word.size() - 1));
  return option != nullptr && option->get_items_expected_max() > 0;
}

/// Such a word becomes two, of which the second is the empty value: the parser would take the next
/// word for the value.
std::vector<std::string> wordsIn(const CLI::App& app, int argc, char** argv) {
  const CLI::App* const chosen = argc > 1 ? subcommandNamed(app, argv[1]) : nullptr;
  std::vector<std::string> words;
  bool mayBeOption = chosen != nullptr;
  for (int i = 1; i < argc; ++i) {
    std::string& word = words.emplace_back(argv[i]);
    mayBeOption = mayBeOption && word != "--";
    if (mayBeOption && isEmptyValue(*chosen, word)) {
      word.pop_back();
      words.emplace_back();
    }
  }
  return words;
}

int parse(CLI::App& app, int argc, char** argv) {
  try {
    std::vector<std::string> words = wordsIn(app, argc, argv);
    std::reverse(words.begin(), words.end());  // as the parser takes them
    app.parse(std::move(words));
    return okStatus;
  } catch (const CLI::ExtrasError& error) {
    const std::string what = unexpected(app);
    return refuseUsage(what.empty() ? error.what() : what);
  } catch (const CLI::ArgumentMismatch& error) {
    return refuseUsage(mismatch(app, error.what()));
  } catch (const CLI::ParseError& error) {
    std::ostringstream out;
    std::ostringstream err;
    const bool isHelp = app.exit(error, out, err) == 0;
    say(out.str());
    complain(err.str());
    return isHelp ? helpStatus : badInputStatus;
  }
}

}  // namespace

int runChosen(int argc, char** argv, const char* what,
              const std::function<void(CLI::App& app, Command& chosen)>& add) {
  CLI::App app(what, "torvex");
  app.set_version_flag("--version", TORVEX_VERSION);
  app.require_subcommand(1);
  app.failure_message([](const CLI::App*, const CLI::Error& error) {
    return visible(std::string("torvex: error: ") + error.what()) + "; see --help\n";
  });
  Command chosen;
  add(app, chosen);
  const std::string first = argc > 1 ? argv[1] : "help";
  if (first == "help") {
    return showHelp(app, argc > 2 ? argv[2] : "");
  }
  if (first.rfind('-', 0) != 0 && subcommandNamed(app, first) == nullptr) {
    return showHelp(app, first);
  }
  const int status = parse(app, argc, argv);
  return status == okStatus && chosen ? chosen() : status == helpStatus ? okStatus : status;
}

}  // namespace host
