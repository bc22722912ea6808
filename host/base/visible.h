#pragma once

#include <string>
#include <string_view>

namespace host {

/// Text for people, on one line: what controls a terminal, turns the direction of writing or
/// is not to be seen, and bytes that are no UTF-8, stand as escapes (\u001b, \xff). Whatever
/// comes from names and files passes through here before it reaches a terminal. A text that has
/// passed stays as it is. The escapes of code points are JSON's.
std::string visible(std::string_view text);

/// The same for a text of several lines: line feeds stay.
std::string visibleLines(std::string_view text);

}  // namespace host
