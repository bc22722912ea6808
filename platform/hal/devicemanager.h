#pragma once

#include "platform/export.h"

namespace hal {

struct AttributeContainer;
struct DeviceAttrGeneric;

/// Finds attributes and containers in the device pool. Any thread, as long as
/// the pool is not being rebuilt; not meant for the control cycle. Pointers
/// stay valid as long as the pool.
class PLATFORM_API DeviceManager {
 public:
  /// The attribute with this index, or null when there is none.
  [[nodiscard]] DeviceAttrGeneric* getAttrWithIndex(int index);

  /// The attribute's short name, NUL-terminated, or null when it has none.
  [[nodiscard]] const char* getNameByAttribute(DeviceAttrGeneric* attribute);

  /// The container that owns the attribute with this index, or null when
  /// there is none. `positionInContainer` receives the attribute's place
  /// among the container's own, counted from 0.
  [[nodiscard]] AttributeContainer* getAttributeContainerWithIndex(int index,
                                                                   int& positionInContainer);

  /// A device or sub-device with exactly this name, or null when there is none.
  [[nodiscard]] AttributeContainer* foundAttributeContainerWithNames(const char* name);
};

/// The device manager of this process; never null.
PLATFORM_API DeviceManager* getDeviceManager();

}  // namespace hal
