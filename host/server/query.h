#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/server/http.h"

namespace host {

/// The parts of a request's query. Throws `Refused`.
class Query {
 public:
  /// Refuses others than these.
  Query(const Request& request, const std::set<std::string>& known);

  [[nodiscard]] std::vector<std::string> all(const std::string& name) const;
  [[nodiscard]] std::optional<std::string> text(const std::string& name) const;
  [[nodiscard]] std::optional<std::uint64_t> wholeNumber(const std::string& name) const;
  [[nodiscard]] double number(const std::string& name, double otherwise, double least,
                              double most) const;
  [[nodiscard]] bool truth(const std::string& name, bool otherwise) const;

 private:
  const Request& request_;
};

}  // namespace host
