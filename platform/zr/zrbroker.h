#pragma once

#include <boost/shared_ptr.hpp>
#include <string>

#include "platform/export.h"
#include "platform/zr/zrproxy.h"

namespace ZR {

/// Gives access to the modules of the framework. Any thread; not meant for the
/// control cycle.
class PLATFORM_API ZRBroker {
 public:
  ZRBroker() = default;
  virtual ~ZRBroker() = default;

  ZRBroker(const ZRBroker&) = delete;
  ZRBroker& operator=(const ZRBroker&) = delete;

  /// A proxy of the module with this name, never empty. `option` is the
  /// framework's; 0 asks for nothing special. Throws `ZRException` when there is no
  /// such module, or when it cannot be reached.
  [[nodiscard]] virtual boost::shared_ptr<ZRProxy> getProxy(const std::string& moduleName,
                                                            int option) = 0;

  /// This broker, shared.
  [[nodiscard]] virtual boost::shared_ptr<ZRBroker> getThis() = 0;
};

}  // namespace ZR
