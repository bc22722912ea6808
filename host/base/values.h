#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace host {

/// What the value of an attribute is.
enum class ValueType { none, integer, real, text };

/// By the attribute's type code.
ValueType valueType(std::uint8_t typeCode);

/// "integer", "float", "text", "none".
const char* valueTypeName(ValueType type);

/// Members keep the order in which they came. Numbers are single, as the device
/// pool's are: they print in the fewest digits that read back as the same float.
using Json = nlohmann::basic_json<nlohmann::ordered_map, std::vector, std::string, bool,
                                  std::int64_t, std::uint64_t, float>;

/// What somebody else wrote. Discarded when it is no JSON, or so deep that a copy of it would need
/// too much of the stack.
Json parsedJson(std::string_view text);

/// What is no UTF-8 in texts becomes U+FFFD, floats that are not finite become
/// null; what `visible` would escape in texts is escaped. A negative indent makes one line.
std::string printed(const Json& json, int indent);

/// A number, exactly where it is a whole one, as no single number would hold it.
Json numberJson(double number);

/// A limit of values of this type, exactly where it is a whole number of an integer; null for none.
Json limitJson(std::uint8_t typeCode, double limit);

/// A value for the eye: a text in quotes, "-" for null, "inf" and "nan".
std::string shown(const Json& value);

/// How many columns of a terminal a text takes: one a code point.
std::size_t columnsOf(const std::string& text);

/// The text, or its two ends with "…" between them when it takes more columns than these (at
/// least 1).
std::string cutInMiddle(const std::string& text, std::size_t columns);

}  // namespace host
