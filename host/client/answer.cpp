#include "host/client/answer.h"

#include <cmath>
#include <nlohmann/json.hpp>

namespace host {

const Json& memberOf(const Json& object, const char* member) {
  static const Json none;
  const auto found = object.find(member);
  return found == object.end() ? none : *found;
}

std::string textOf(const Json& object, const char* member) {
  const Json& value = memberOf(object, member);
  return value.is_string() ? value.get<std::string>() : std::string();
}

std::int64_t numberOf(const Json& object, const char* member) {
  const Json& value = memberOf(object, member);
  constexpr float most = 9e18F;
  const bool fits =
      value.is_number_integer() || (value.is_number_float() && std::abs(value.get<float>()) < most);
  return fits ? value.get<std::int64_t>() : 0;
}

std::uint64_t countOf(const Json& object, const char* member) {
  const Json& value = memberOf(object, member);
  return value.is_number_unsigned() ? value.get<std::uint64_t>() : 0;
}

}  // namespace host
