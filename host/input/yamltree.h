#pragma once

#include <string>

#include "host/input/node.h"

namespace host {

/// Reads a YAML text of one document, and behind it at most one without content. Throws
/// `UserError` for what is no YAML, and for a text with more values than there is memory for.
void readYamlTree(const std::string& path, const std::string& text, NodeTree& tree);

}  // namespace host
