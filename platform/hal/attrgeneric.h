#pragma once

#include <cstdint>
#include <type_traits>

namespace hal {

/// The value of an attribute: a plain record, copied whole.
///
/// Which member holds depends on the attribute's type code. The first four
/// bytes are the float of a float attribute. A platform stores and loads the
/// record in one piece, so that no reader sees half of a value.
struct alignas(8) AttrGeneric {
  union {
    float asFloat;
    std::int32_t asInt;
    /// Bytes from the start of the device pool to a NUL-terminated text.
    std::uint64_t asTextOffset;
  };

  /// All bytes zero: 0.0, 0 and no text.
  AttrGeneric() noexcept : asTextOffset(0) {}

  /// The record of a float attribute.
  explicit AttrGeneric(float value) noexcept : AttrGeneric() { asFloat = value; }
};

static_assert(sizeof(AttrGeneric) == 8 && std::is_trivially_copyable_v<AttrGeneric>);

}  // namespace hal
