#include "host/cli/arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

#include "host/base/visible.h"
#include "host/cli/status.h"

namespace host {

CLI::App& addSubcommand(CLI::App& app, const char* name, const char* what,
                        const std::string& footer, const Command& run, Command& chosen) {
  CLI::App& command = *app.add_subcommand(name, what);
  command.footer(footer);
  command.callback([run, &chosen] { chosen = run; });
  return command;
}

void addArgument(CLI::App& command, const char* name, std::string& value, const char* what) {
  command.add_option(name, value, what)->required();
}

void addArguments(CLI::App& command, const char* name, std::vector<std::string>& values,
                  bool mustBeGiven, const char* what) {
  command.add_option(name, values, what)->required(mustBeGiven);
}

void addFlag(CLI::App& command, const char* name, bool& flag, const char* what) {
  command.add_flag(name, flag, what);
}

void addOption(CLI::App& command, const OptionText& text, std::string& value) {
  command.add_option(text.name, value, text.what)
      ->type_name(text.type)
      ->default_str(text.otherwise);
}

void addOption(CLI::App& command, const OptionText& text, const Take& take) {
  command.add_option_function<std::string>(text.name, take, text.what)
      ->type_name(text.type)
      ->default_str(text.otherwise);
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
      ->take_all();
}

void refuseOption(const std::string& option, const std::string& why) {
  throw CLI::ValidationError(option, why);
}

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
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    std::ostringstream out;
    std::ostringstream err;
    const bool isHelp = app.exit(error, out, err) == 0;
    say(out.str());
    complain(err.str());
    return isHelp ? okStatus : badInputStatus;
  }
  return chosen();
}

}  // namespace host
