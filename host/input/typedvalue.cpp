#include "host/input/typedvalue.h"

#include <fmt/format.h>

#include <limits>
#include <variant>

#include "host/base/values.h"

namespace host {

std::uint8_t readTypeCode(const YamlFile& yaml, const YAML::Node& node, std::uint8_t least,
                          std::uint8_t most) {
  return static_cast<std::uint8_t>(yaml.wholeNumber(node, "type", least, most));
}

std::int32_t readInteger(const YamlFile& yaml, const YAML::Node& node, const char* what) {
  return static_cast<std::int32_t>(yaml.wholeNumber(node, what,
                                                    std::numeric_limits<std::int32_t>::min(),
                                                    std::numeric_limits<std::int32_t>::max()));
}

simulation::Value readValue(const YamlFile& yaml, const YamlFile::Fields& fields,
                            std::uint8_t typeCode) {
  const auto found = fields.find("value");
  const bool given = found != fields.end();
  switch (valueType(typeCode)) {
    case ValueType::integer:
      return given ? readInteger(yaml, found->second, "value") : 0;
    case ValueType::real:
      return given ? yaml.singleNumber(found->second, "value") : 0.0F;
    case ValueType::text:
      return given ? yaml.text(found->second, "value") : std::string();
    case ValueType::none:
      break;
  }
  if (given) {
    yaml.fail(found->second, fmt::format("type {} has no value (1 to 6: integer, 7: float, 8 and "
                                         "9: text)",
                                         typeCode));
  }
  return std::monostate();
}

}  // namespace host
