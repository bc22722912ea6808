#include "host/cli/usage.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

namespace host {
namespace {

UsageOption usageOption(const CLI::Option& option) {
  UsageOption usage;
  usage.isArgument = option.get_positional();
  if (usage.isArgument) {
    usage.names.push_back(option.get_name(true));
  }
  for (const std::string& name : option.get_snames()) {
    usage.names.push_back("-" + name);
  }
  for (const std::string& name : option.get_lnames()) {
    usage.names.push_back("--" + name);
  }
  usage.type = option.get_items_expected_max() > 0 ? option.get_type_name() : "";
  if (usage.isArgument && usage.choices().empty()) {
    usage.type.clear();
  }
  usage.isRequired = option.get_required();
  usage.isRepeatable = usage.isArgument
                           ? option.get_items_expected_max() > 1
                           : option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll;
  usage.what = option.get_description();
  usage.otherwise = option.get_default_str();
  return usage;
}

}  // namespace

std::vector<std::string> UsageOption::choices() const {
  std::vector<std::string> found;
  std::istringstream parts(type);
  for (std::string part; std::getline(parts, part, '|');) {
    const bool isWord = !part.empty() && std::all_of(part.begin(), part.end(), [](char letter) {
      return std::islower(static_cast<unsigned char>(letter)) != 0 ||
             std::isdigit(static_cast<unsigned char>(letter)) != 0 || letter == '-' ||
             letter == '_';
    });
    if (!isWord) {
      return {};
    }
    found.push_back(part);
  }
  return found;
}

bool UsageOption::takesPath() const {
  return takesFolder() || type.find("FILE") != std::string::npos ||
         type.find("PATH") != std::string::npos;
}

bool UsageOption::takesFolder() const {
  return type == "DIR";
}

std::vector<UsageCommand> usageOf(const CLI::App& app) {
  std::vector<UsageCommand> commands;
  for (const CLI::App* const command : app.get_subcommands(nullptr)) {
    if (command->get_group().empty()) {
      continue;
    }
    UsageCommand& usage = commands.emplace_back();
    usage.name = command->get_name();
    usage.what = command->get_description();
    usage.footer = command->get_footer();
    for (const CLI::Option* const option : command->get_options()) {
      usage.options.push_back(usageOption(*option));
    }
  }
  return commands;
}

}  // namespace host
