#pragma once

#include <cstddef>
#include <string>

#include "host/base/usererror.h"

namespace host {

/// The whole file. Throws `UserError` when it cannot be read or is longer
/// than `maxBytes`. Leaves out a byte order mark.
std::string readFile(const std::string& path, std::size_t maxBytes);

/// The source location of a byte in a text; for any further one, of its end.
SourceLocation locationAt(const std::string& text, std::size_t offset);

/// A finite decimal number, as it stands in the file, nothing around it.
/// False when it is anything else.
bool parseNumber(const std::string& text, double& number);

}  // namespace host
