#pragma once

#include <string>
#include <vector>

#include "host/base/values.h"
#include "host/client/door.h"

namespace host {

/// Asks a machine to play motion files, "FILE" or "FILE:NAME" each; `body` has what else is asked.
/// The texts of the files go with it, also of those that they name in turn. Throws as
/// `Door::post`, and `UserError` when a file cannot be read.
Json postMotions(Door& door, const std::vector<std::string>& names, Json body);

}  // namespace host
