#pragma once

#include <boost/shared_ptr.hpp>

#include "platform/export.h"

namespace ZR {

/// A reader-writer lock, made by the framework and shared by its users. The
/// library takes write sections only, never one inside another, so the lock
/// need not be recursive. It is held inside the control cycle: an
/// implementation should inherit priorities.
class PLATFORM_API ZRMutexRW {
 public:
  /// A new lock, held by nobody. Throws when the system refuses one.
  static boost::shared_ptr<ZRMutexRW> createZRMutexRW();

  ZRMutexRW(const ZRMutexRW&) = delete;
  ZRMutexRW& operator=(const ZRMutexRW&) = delete;

 protected:
  ZRMutexRW() = default;
  ~ZRMutexRW() = default;
};

}  // namespace ZR
