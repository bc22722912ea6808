#include "host/server/target.h"

#include <charconv>
#include <optional>

namespace host {
namespace {

std::optional<std::string> decoded(const std::string& text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      plain += text[i];
      continue;
    }
    unsigned byte = 0;
    const char* const digits = text.data() + i + 1;
    if (i + 2 >= text.size() || std::from_chars(digits, digits + 2, byte, 16).ptr != digits + 2 ||
        byte == 0) {
      return std::nullopt;
    }
    plain += static_cast<char>(byte);
    i += 2;
  }
  return plain;
}

bool readQuery(const std::string& query, Request& request) {
  for (std::size_t begin = 0; begin < query.size();) {
    const std::size_t end = std::min(query.find('&', begin), query.size());
    const std::string part = query.substr(begin, end - begin);
    const std::size_t equals = std::min(part.find('='), part.size());
    const auto name = decoded(part.substr(0, equals));
    const auto value = decoded(equals == part.size() ? "" : part.substr(equals + 1));
    if (!name || !value) {
      return false;
    }
    request.query.emplace_back(*name, *value);
    begin = end + 1;
  }
  return true;
}

}  // namespace

bool readTarget(const std::string& target, Request& request) {
  const std::size_t mark = std::min(target.find('?'), target.size());
  const auto path = decoded(target.substr(0, mark));
  if (!path || path->empty() || path->front() != '/') {
    return false;
  }
  request.path = *path;
  return mark == target.size() || readQuery(target.substr(mark + 1), request);
}

}  // namespace host
