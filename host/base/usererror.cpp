#include "host/base/usererror.h"

#include <fmt/format.h>

#include <utility>

#include "host/base/counted.h"
#include "host/base/visible.h"

namespace host {
namespace {

std::string shown(const std::vector<UserError::Entry>& entries, bool more) {
  std::string text;
  std::size_t ofFile = 0;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const auto& [path, location, what] = entries[i];
    ofFile = i > 0 && entries[i - 1].path == path ? ofFile + 1 : 1;
    if (ofFile <= UserError::mostShown) {
      text += (i == 0 ? "" : "\n") +
              visible(fmt::format("{}: error: {}", host::shown({path, location}), what));
      continue;
    }
    const bool isLast = i + 1 == entries.size();
    if (isLast || entries[i + 1].path != path) {
      const std::size_t left = ofFile - UserError::mostShown;
      text += fmt::format("\n{}: error: {}{} in this file", visible(path),
                          isLast && more ? "at least " : "", counted(left, "more error"));
    }
  }
  return text;
}

}  // namespace

std::string shown(const FileLocation& where) {
  const auto& [path, location] = where;
  return location.line == 0 ? path : fmt::format("{}:{}:{}", path, location.line, location.column);
}

UserError::UserError(const std::string& path, SourceLocation location, const std::string& what)
    : UserError({{path, location, what}}, false) {}

UserError::UserError(std::vector<Entry> entries, bool more)
    : std::runtime_error(shown(entries, more)),
      entries_(std::make_shared<const std::vector<Entry>>(std::move(entries))) {}

}  // namespace host
