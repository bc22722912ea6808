#pragma once

#include <boost/interprocess/offset_ptr.hpp>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "platform/export.h"
#include "platform/hal/attrgeneric.h"

namespace hal {

struct AttributeContainer;

/// The type code of float attributes, the only ones that may be interpolated.
constexpr std::uint8_t floatTypeCode = 7;

/// One attribute in the device pool. The library reads the type code and the
/// flags, and writes the value of float attributes that no sub-device owns;
/// everything else is the platform's.
struct PLATFORM_API DeviceAttrGeneric {
  /// Set in `flags` when changes of the value are to be tracked.
  static constexpr std::uint8_t trackChangeFlag = 0x40;

  AttrGeneric value;
  /// Tracked changes so far, modulo 2^16.
  std::uint16_t changeCount = 0;
  std::uint8_t flags = 0;
  /// 1 to 6: integers. 7: float. 8 and 9: texts. Others: no value.
  std::uint8_t typeCode = 0;
  /// NUL-terminated; null when the attribute has no name.
  boost::interprocess::offset_ptr<char> name;
  /// Null when no container owns the attribute.
  boost::interprocess::offset_ptr<AttributeContainer> container;

  /// Stores a value of any type in one piece and tracks the change where the
  /// flag asks for it. Called inside the control cycle with the timeline lock
  /// held: must not block, allocate or call back. May throw; the library then
  /// keeps the command and lets the exception through.
  void set(const AttrGeneric& newValue);

  /// Notes that the value has changed. Called inside the control cycle, only
  /// while `trackChangeFlag` is set; same duties as `set`.
  void trackChange();

  /// Stores the float of a float attribute; tracks nothing. The record is loaded and stored in
  /// one piece each and keeps its other four bytes, which two writers at once could mix.
  void storeFloat(float newValue) noexcept {
    AttrGeneric record;
    __atomic_load(&value, &record, __ATOMIC_RELAXED);
    std::memcpy(&record.asFloat, &newValue, sizeof newValue);
    __atomic_store(&value, &record, __ATOMIC_RELEASE);
  }

  /// Any thread.
  [[nodiscard]] float loadFloat() const noexcept {
    AttrGeneric present;
    __atomic_load(&value, &present, __ATOMIC_RELAXED);
    return present.asFloat;
  }

  [[nodiscard]] bool tracksChanges() const noexcept { return (flags & trackChangeFlag) != 0; }
};

static_assert(std::is_standard_layout_v<DeviceAttrGeneric>);
static_assert(offsetof(DeviceAttrGeneric, value) == 0);
static_assert(offsetof(DeviceAttrGeneric, typeCode) == 11, "the type code lies at byte 11");

}  // namespace hal
