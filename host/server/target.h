#pragma once

#include <string>

#include "host/server/http.h"

namespace host {

/// Splits the target of a request into its path and query, and decodes them. False when it is no
/// path, or its escapes are none.
bool readTarget(const std::string& target, Request& request);

}  // namespace host
