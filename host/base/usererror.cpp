#include "host/base/usererror.h"

#include <fmt/format.h>

namespace host {
namespace {

std::string locate(const std::string& path, SourceLocation position) {
  return position.line == 0 ? path : fmt::format("{}:{}:{}", path, position.line, position.column);
}

}  // namespace

UserError::UserError(const std::string& path, SourceLocation position, const std::string& what)
    : std::runtime_error(fmt::format("{}: error: {}", locate(path, position), what)) {}

}  // namespace host
