#pragma once

#include <cstddef>
#include <string>

namespace host {

/// Whether it has only what every file system and shell takes as it stands: letters, digits, ".",
/// "_" and "-".
bool isPlainName(const std::string& text);

/// At most so many of its bytes, with "_" for what a plain name may not have.
std::string plainName(const std::string& text, std::size_t longest);

}  // namespace host
