#pragma once

#include <string>

#include "platform/zr/zrvalue.h"
#include "tests/support/bits.h"

/// A tree on one line, every type told apart, and floats to the bit.
inline std::string drawn(const ZR::ZRValue& value) {
  switch (value.getType()) {
    case ZR::ZRValue::intType:
      return std::to_string(value.asInt());
    case ZR::ZRValue::floatType:
      return "f" + std::to_string(bitsOf(value.asFloat()));
    case ZR::ZRValue::stringType:
      return "'" + value.asString() + "'";
    case ZR::ZRValue::arrayType: {
      std::string elements;
      for (int i = 0; i < value.getSize(); ++i) {
        elements += (i == 0 ? "" : " ") + drawn(value[i]);
      }
      return "[" + elements + "]";
    }
    default:
      return "-";
  }
}
