#pragma once

#include <boost/interprocess/offset_ptr.hpp>
#include <cstdint>

namespace hal {

constexpr std::uint8_t subDeviceKind = 0;
constexpr std::uint8_t deviceKind = 1;

/// The owner of a run of attributes: a device, a sub-device or another kind
/// that has no attribute keys. Lies in the device pool.
struct AttributeContainer {
  /// NUL-terminated, never null.
  boost::interprocess::offset_ptr<char> name;
  std::int32_t firstAttrIndex = 0;
  /// Inclusive; below `firstAttrIndex` when the container owns no attribute.
  std::int32_t lastAttrIndex = -1;
  /// `deviceKind`, `subDeviceKind` or a further code of the platform.
  std::uint8_t kind = subDeviceKind;
};

struct Device : AttributeContainer {};

struct SubDevice : AttributeContainer {};

}  // namespace hal
