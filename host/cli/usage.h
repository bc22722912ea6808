#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace host {

/// An option or an argument of a subcommand, as `--help` tells it.
struct UsageOption {
  /// "--late", or "MACHINE" for an argument.
  std::vector<std::string> names;
  /// "stand|catch-up"; empty for a flag, and for an argument without choices.
  std::string type;
  std::string what;
  std::string otherwise;
  bool isArgument = false;
  bool isRepeatable = false;
  bool isRequired = false;

  /// What may follow, where the type lists it.
  [[nodiscard]] std::vector<std::string> choices() const;
  /// The value is the path of a file or a folder.
  [[nodiscard]] bool takesPath() const;
  [[nodiscard]] bool takesFolder() const;
};

struct UsageCommand {
  std::string name;
  std::string what;
  std::string footer;
  std::vector<UsageOption> options;
};

/// The subcommands that `--help` shows.
std::vector<UsageCommand> usageOf(const CLI::App& app);

}  // namespace host
