#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

namespace host {

/// A source location, counted from 1; 0 where only the file is known.
struct Position {
  std::size_t line = 0;
  std::size_t column = 0;
};

/// Bad input: "file:line:column: error: what is wrong and what would be right".
class InputError : public std::runtime_error {
 public:
  InputError(const std::string& path, Position position, const std::string& what);
};

/// The whole file. Throws `InputError` when it cannot be read or is longer
/// than `maxBytes`. Leaves out a byte order mark.
std::string readFile(const std::string& path, std::size_t maxBytes);

/// The source location of a byte in a text; for any further one, of its end.
Position positionAt(const std::string& text, std::size_t offset);

/// A finite decimal number, as it stands in the file, nothing around it.
/// False when it is anything else.
bool parseNumber(const std::string& text, double& number);

}  // namespace host
