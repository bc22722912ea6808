#pragma once

#include <boost/interprocess/offset_ptr.hpp>
#include <cstdint>

#include "platform/export.h"
#include "platform/hal/preference.h"

namespace hal {

/// What every device pool begins with; the platform's own tables follow.
struct DevicePool {
  /// Valid attribute indexes are 0 to `attributeCount` - 1.
  std::uint16_t attributeCount = 0;
  /// The entries of `preferences`, empty slots included.
  std::uint16_t preferenceCount = 0;
  /// A table of pointers, none of them null.
  boost::interprocess::offset_ptr<boost::interprocess::offset_ptr<Preference>> preferences;
};

/// The device pool of this process; never null. Set-up only. Throws the
/// platform's own exception when there is none.
PLATFORM_API DevicePool* getDevicePool();

}  // namespace hal
