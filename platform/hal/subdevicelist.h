#pragma once

#include "platform/hal/subdeviceiterator.h"

namespace hal {

/// All sub-devices of the device pool, in the pool's order. Set-up only.
class PLATFORM_API SubDeviceList {
 public:
  /// An iterator on the first sub-device; equal to `end()` when there is none.
  [[nodiscard]] SubDeviceIterator find();

  /// The iterator past the last sub-device.
  [[nodiscard]] SubDeviceIterator end();
};

}  // namespace hal
