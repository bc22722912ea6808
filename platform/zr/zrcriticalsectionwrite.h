#pragma once

#include <boost/shared_ptr.hpp>

#include "platform/export.h"
#include "platform/zr/zrmutexrw.h"

namespace ZR {

/// Holds a lock as its only user for as long as it lives, and keeps the lock
/// alive meanwhile.
class PLATFORM_API ZRCriticalSectionWrite {
 public:
  /// Waits until nobody else holds `mutex`, which must not be empty. Called
  /// inside the control cycle. When it throws, nothing is held.
  explicit ZRCriticalSectionWrite(boost::shared_ptr<ZRMutexRW> mutex);
  /// Lets the lock go; must not throw.
  ~ZRCriticalSectionWrite();

  ZRCriticalSectionWrite(const ZRCriticalSectionWrite&) = delete;
  ZRCriticalSectionWrite& operator=(const ZRCriticalSectionWrite&) = delete;

 private:
  boost::shared_ptr<ZRMutexRW> mutex_;
};

}  // namespace ZR
