#pragma once

#include <string>

#include "host/input/node.h"

namespace host {

/// Reads a JSON text. Throws `UserError`, with a JSON pointer as its path, for what is no JSON,
/// is nested too deeply or holds too many values.
void readJsonTree(const std::string& text, NodeTree& tree);

}  // namespace host
