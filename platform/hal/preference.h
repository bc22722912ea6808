#pragma once

#include <boost/interprocess/offset_ptr.hpp>
#include <cstdint>

namespace hal {

struct AttributeContainer;

/// A setting of the machine that outlives its power supply. Lies in the device
/// pool.
struct Preference {
  /// NUL-terminated, never null. The first character is a mark that is part of no
  /// key; an empty name has none.
  boost::interprocess::offset_ptr<char> name;
  /// The device or sub-device that it belongs to; never null while in use.
  boost::interprocess::offset_ptr<AttributeContainer> owner;
  /// Which member holds depends on the type code.
  union Slot {
    std::int32_t asInt;
    float asFloat;
    /// NUL-terminated, never null while a text is in use. Of type 9, the first
    /// character is a mark that is no part of the text.
    boost::interprocess::offset_ptr<char> asText;

    Slot() : asText() {}
  } value;
  /// 1 to 6: integers. 7: float. 8: text. 9: marked text. Others: no value.
  std::uint8_t typeCode = 0;
  /// 0: an empty slot of the table.
  std::uint8_t inUse = 0;
};

/// A stored name or text less its mark; the empty text has none.
inline const char* withoutMark(const char* text) {
  return *text == '\0' ? text : text + 1;
}

}  // namespace hal
