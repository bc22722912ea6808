#include "host/server/query.h"

#include <fmt/format.h>

#include <charconv>

#include "host/base/textfile.h"
#include "host/server/refused.h"

namespace host {
namespace {

[[noreturn]] void refuse(const std::string& name, const std::string& what) {
  throw Refused({400, "invalid", what, "?" + name});
}

}  // namespace

Query::Query(const Request& request, const std::set<std::string>& known) : request_(request) {
  for (const auto& [name, value] : request.query) {
    if (known.count(name) == 0) {
      refuse(name, known.empty()
                       ? "this path has no parameters"
                       : fmt::format("unknown parameter; known are {}", fmt::join(known, ", ")));
    }
  }
}

std::vector<std::string> Query::all(const std::string& name) const {
  std::vector<std::string> values;
  for (const auto& [given, value] : request_.query) {
    if (given == name) {
      values.push_back(value);
    }
  }
  return values;
}

std::optional<std::string> Query::text(const std::string& name) const {
  const std::vector<std::string> values = all(name);
  if (values.size() > 1) {
    refuse(name, "is given twice");
  }
  return values.empty() ? std::nullopt : std::optional(values.front());
}

std::optional<std::uint64_t> Query::wholeNumber(const std::string& name) const {
  const std::optional<std::string> text = this->text(name);
  if (!text) {
    return std::nullopt;
  }
  std::uint64_t value = 0;
  const char* const end = text->data() + text->size();
  const auto [stop, failure] = std::from_chars(text->data(), end, value);
  if (failure != std::errc() || stop != end || text->empty()) {
    refuse(name, "is not a whole number");
  }
  return value;
}

double Query::number(const std::string& name, double otherwise, double least, double most) const {
  const std::optional<std::string> text = this->text(name);
  double value = otherwise;
  if (text && (!parseNumber(*text, value) || !(value >= least) || value > most)) {
    refuse(name, fmt::format("is not a number from {} to {}", least, most));
  }
  return value;
}

bool Query::truth(const std::string& name, bool otherwise) const {
  const std::optional<std::string> text = this->text(name);
  if (text && *text != "true" && *text != "false") {
    refuse(name, "is neither true nor false");
  }
  return text ? *text == "true" : otherwise;
}

}  // namespace host
