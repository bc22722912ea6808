#pragma once

#include <string>
#include <vector>

#include "host/base/values.h"
#include "host/client/doorclient.h"
#include "host/results/findings.h"

namespace host {

/// Asks a machine to play motion files, "FILE" or "FILE:NAME" each; `body` has what else is asked.
/// The texts of the files go with it, also of those that they name in turn. Throws as
/// `DoorClient::post`, and `UserError` when a file cannot be read.
Json postMotions(DoorClient& door, const std::vector<std::string>& names, Json body);

/// What the answer to a dry run warns of.
std::vector<Finding> warningsIn(const Json& answer);

}  // namespace host
