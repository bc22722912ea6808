#pragma once

#include "platform/hal/attributecontainer.h"
#include "platform/hal/attributecontaineraccessor.h"

namespace hal {

/// A handle on a device.
class PLATFORM_API DeviceAccessor : public AttributeContainerAccessor {
 public:
  explicit DeviceAccessor(Device* device) : AttributeContainerAccessor(device) {}
};

}  // namespace hal
