#include "host/input/typedvalue.h"

#include <fmt/format.h>

#include <limits>
#include <variant>

#include "host/base/values.h"

namespace host {

std::uint8_t readTypeCode(const Document& document, const Node& node, std::uint8_t least,
                          std::uint8_t most) {
  return static_cast<std::uint8_t>(document.wholeNumber(node, "type", least, most));
}

std::int32_t readInteger(const Document& document, const Node& node, const char* what) {
  return static_cast<std::int32_t>(document.wholeNumber(node, what,
                                                        std::numeric_limits<std::int32_t>::min(),
                                                        std::numeric_limits<std::int32_t>::max()));
}

simulation::Value readValue(const Document& document, const Document::Fields& fields,
                            std::uint8_t typeCode) {
  const auto found = fields.find("value");
  const bool given = found != fields.end();
  switch (valueType(typeCode)) {
    case ValueType::integer:
      return given ? readInteger(document, found->second, "value") : 0;
    case ValueType::real:
      return given ? document.singleNumber(found->second, "value") : 0.0F;
    case ValueType::text:
      return given ? document.text(found->second, "value") : std::string();
    case ValueType::none:
      break;
  }
  if (given) {
    document.fail(found->second,
                  fmt::format("type {} has no value (1 to 6: integer, 7: float, 8 and "
                              "9: text)",
                              typeCode));
  }
  return std::monostate();
}

}  // namespace host
