#include "host/base/values.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "host/base/visible.h"
#include "platform/hal/deviceattrgeneric.h"

namespace host {
namespace {

bool startsCodePoint(char byte) {
  return (byte & 0xC0) != 0x80;
}

/// Counts brackets outside texts: of what is JSON it is the depth.
bool isDeeperThan(std::string_view json, int most) {
  int depth = 0;
  bool isInText = false;
  for (std::size_t i = 0; i < json.size(); ++i) {
    const char one = json[i];
    if (isInText) {
      i += one == '\\' ? 1 : 0;
      isInText = one != '"';
    } else if (one == '[' || one == '{') {
      if (++depth > most) {
        return true;
      }
    } else if (one == ']' || one == '}') {
      --depth;
    } else {
      isInText = one == '"';
    }
  }
  return false;
}

}  // namespace

ValueType valueType(std::uint8_t typeCode) {
  if (typeCode == hal::floatTypeCode) {
    return ValueType::real;
  }
  if (typeCode == 8 || typeCode == 9) {
    return ValueType::text;
  }
  return typeCode >= 1 && typeCode <= 6 ? ValueType::integer : ValueType::none;
}

const char* valueTypeName(ValueType type) {
  switch (type) {
    case ValueType::integer:
      return "integer";
    case ValueType::real:
      return "float";
    case ValueType::text:
      return "text";
    case ValueType::none:
      break;
  }
  return "none";
}

Json numberJson(double number) {
  constexpr double mostWhole = 1e15;
  const bool isWhole = number == std::round(number) && std::abs(number) <= mostWhole;
  return isWhole ? Json(static_cast<std::int64_t>(number)) : Json(static_cast<float>(number));
}

Json limitJson(std::uint8_t typeCode, double limit) {
  if (!std::isfinite(limit)) {
    return {};
  }
  return valueType(typeCode) == ValueType::integer ? numberJson(limit)
                                                   : Json(static_cast<float>(limit));
}

Json parsedJson(std::string_view text) {
  constexpr int deepest = 100;
  return isDeeperThan(text, deepest) ? Json(Json::value_t::discarded)
                                     : Json::parse(text, nullptr, false);
}

std::string printed(const Json& json, int indent) {
  return visibleLines(json.dump(indent, ' ', false, Json::error_handler_t::replace));
}

std::string shown(const Json& value) {
  if (value.is_number_float()) {
    return fmt::format("{}", value.get<float>());
  }
  return value.is_null() ? "-" : printed(value, -1);
}

std::size_t columnsOf(const std::string& text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), startsCodePoint));
}

std::string cutInMiddle(const std::string& text, std::size_t columns) {
  const std::size_t taken = columnsOf(text);
  if (taken <= columns) {
    return text;
  }
  // Long names mostly differ at one end or the other.
  const std::size_t behind = columns / 2;
  const auto codePoint = [&text](std::size_t number) {
    return std::find_if(text.begin(), text.end(),
                        [&number](char byte) { return startsCodePoint(byte) && number-- == 0; });
  };
  return std::string(text.begin(), codePoint(columns - behind - 1)) + "…" +
         std::string(codePoint(taken - behind), text.end());
}

}  // namespace host
