#include "host/cli/documentcommands.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <string>

#include "host/base/outputfile.h"
#include "host/base/stopsignal.h"
#include "host/cli/completion.h"
#include "host/cli/manual.h"
#include "host/cli/output.h"
#include "host/cli/status.h"
#include "host/cli/usage.h"

namespace host {
namespace {

constexpr const char* shells[] = {"bash", "zsh", "fish"};

int printCompletion(const CLI::App& app, const std::string& shell) {
  const StopSignal stopSignal;
  const std::string script = completionScript(shell, usageOf(app));
  if (script.empty()) {
    complain("torvex: error: completion is for bash, zsh or fish\n");
    return badInputStatus;
  }
  return writeOut(script);
}

void writeFile(const std::filesystem::path& path, const std::string& text) {
  OutputFile file(path.string());
  file.write(text.data(), text.size());
  file.commit();
}

int writeManual(const CLI::App& app, const std::filesystem::path& folder) {
  std::filesystem::create_directories(folder);
  const std::vector<UsageCommand> commands = usageOf(app);
  writeFile(folder / "torvex.1", manualPage(commands));
  for (const UsageCommand& command : commands) {
    writeFile(folder / ("torvex-" + command.name + ".1"), manualPage(command));
  }
  for (const char* const shell : shells) {
    writeFile(folder / ("torvex." + std::string(shell)), completionScript(shell, commands));
  }
  return okStatus;
}

}  // namespace

void addDocumentCommands(CLI::App& app, Command& chosen) {
  const auto shell = std::make_shared<std::string>();
  CLI::App& completion = addSubcommand(
      app, "completion", "Print a completion script for a shell",
      "For this shell alone, in bash:\n"
      "  source <(torvex completion bash)\n\n"
      "An installed tool has it already. Keys are those of the machine that runs.\n\n"
      "Exit status: 0; 1 if it could not be written; 2 for wrong usage.",
      [&app, shell] { return printCompletion(app, *shell); }, chosen);
  addArgument(completion, {"SHELL", "bash|zsh|fish", "The shell", ""}, *shell);

  const auto folder = std::make_shared<std::string>();
  CLI::App& manual = addSubcommand(
      app, "manual", "Write the manual pages and the completions into a folder", "",
      [&app, folder] { return writeManual(app, *folder); }, chosen);
  manual.group("");
  addArgument(manual, "FOLDER", *folder, "Created if it is missing");
}

}  // namespace host
