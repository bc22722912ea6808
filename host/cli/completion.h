#pragma once

#include <string>
#include <vector>

#include "host/cli/usage.h"

namespace host {

/// A script that completes subcommands, options, their choices, and keys of the running machine
/// for this shell, "bash", "zsh" or "fish"; empty for any other.
std::string completionScript(const std::string& shell, const std::vector<UsageCommand>& commands);

}  // namespace host
