#include "host/cli/clients/played.h"

#include <fmt/format.h>

#include <algorithm>

#include <nlohmann/json.hpp>

#include "host/base/counted.h"
#include "host/base/visible.h"
#include "host/client/answer.h"

namespace host {

void Played::note(const Json& event) {
  const std::string kind = textOf(event, "kind");
  const std::uint64_t count = countOf(event, "count");
  reached += kind == "reached" ? count : 0;
  cleared += kind == "cleared" ? count : 0;
  refused += kind == "refused" ? count : 0;
  if (kind == "cleared" || kind == "refused") {
    by.insert(textOf(event, kind == "cleared" ? "by" : "reason"));
  }
}

bool Played::isDisturbed() const {
  return std::any_of(by.begin(), by.end(), [](const std::string& each) { return each != "batch"; });
}

std::string Played::shortfall() const {
  std::string names;
  for (const std::string& one : by) {
    names += (names.empty() ? "" : ", ") + visible(one);
  }
  return fmt::format("{} cleared, {} refused ({})", host::counted(cleared, "point"), refused,
                     names);
}

Json keysIn(const Json& answer, Played& played) {
  std::set<std::string> keys;
  for (const Json& batch : memberOf(answer, "batches")) {
    for (const Json& axis : memberOf(batch, "axes")) {
      keys.insert(textOf(axis, "key"));
      played.points += countOf(axis, "points");
    }
  }
  Json list = keys;
  return list;
}

}  // namespace host
