#pragma once

#include <string>
#include <vector>

#include "host/cli/usage.h"

namespace host {

/// A manual page, for man(1), of the tool or of one subcommand.
std::string manualPage(const std::vector<UsageCommand>& commands);
std::string manualPage(const UsageCommand& command);

}  // namespace host
