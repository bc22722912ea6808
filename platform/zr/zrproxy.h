#pragma once

#include "platform/export.h"

namespace ZR {

/// Stands for a module of the framework; the broker hands it out.
class PLATFORM_API ZRProxy {
 public:
  ZRProxy() = default;
  virtual ~ZRProxy() = default;

  ZRProxy(const ZRProxy&) = delete;
  ZRProxy& operator=(const ZRProxy&) = delete;
};

}  // namespace ZR
