#pragma once

#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace host {

/// What a subcommand does once its options are known; the result is the exit
/// status.
using Command = std::function<int()>;

/// How an option is shown by `--help`.
struct OptionText {
  const char* name;
  const char* type;
  const char* what;
  /// Shown as the default; empty: none.
  std::string otherwise;
};

/// Makes `run` what is chosen when the subcommand is given.
CLI::App& addSubcommand(CLI::App& app, const char* name, const char* what,
                        const std::string& footer, const Command& run, Command& chosen);

// What an argument or an option is given must not be empty; that of an option must not begin with
// "--", as the next option does where the value is missing.

/// An argument that must be given.
void addArgument(CLI::App& command, const char* name, std::string& value, const char* what);
/// One of the words that `text.type` lists ("hold|release"), which shells complete.
void addArgument(CLI::App& command, const OptionText& text, std::string& value);
/// Arguments, one or more where they must be given.
void addArguments(CLI::App& command, const char* name, std::vector<std::string>& values,
                  bool mustBeGiven, const char* what);
void addFlag(CLI::App& command, const char* name, bool& flag, const char* what);
void addOption(CLI::App& command, const OptionText& text, std::string& value);
/// `take` is given the text of the option, each time that it occurs where it may be repeated.
using Take = std::function<void(const std::string& text)>;
void addOption(CLI::App& command, const OptionText& text, const Take& take);
void addRepeatable(CLI::App& command, const OptionText& text, const Take& take);
/// These options make sense with `needed` alone, which is added already, as they are; without it
/// they are refused as wrong usage.
void addNeed(CLI::App& command, const std::vector<const char*>& options, const char* needed);
/// The two options are refused together.
void addExclusion(CLI::App& command, const char* option, const char* other);
/// For `take`: the option is refused as wrong usage.
[[noreturn]] void refuseOption(const std::string& option, const std::string& why);

/// Parses the arguments by the subcommands that `add` adds, and runs what they choose; the result
/// is the exit status.
int runChosen(int argc, char** argv, const char* what,
              const std::function<void(CLI::App& app, Command& chosen)>& add);

}  // namespace host
