#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

namespace host {

/// A source location, counted from 1; 0 where only the file is known.
struct SourceLocation {
  std::size_t line = 0;
  std::size_t column = 0;
};

/// Bad input: "file:line:column: error: what is wrong and what would be right".
class UserError : public std::runtime_error {
 public:
  UserError(const std::string& path, SourceLocation position, const std::string& what);
};

}  // namespace host
