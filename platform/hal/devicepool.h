#pragma once

#include <cstdint>

#include "platform/export.h"

namespace hal {

/// What every device pool begins with; the platform's own tables follow.
struct DevicePool {
  /// Valid attribute indexes are 0 to `attributeCount` - 1.
  std::uint16_t attributeCount = 0;
};

/// The device pool of this process; never null. Set-up only. Throws the
/// platform's own exception when there is none.
PLATFORM_API DevicePool* getDevicePool();

}  // namespace hal
