#pragma once

#include <boost/shared_ptr.hpp>
#include <string>

#include "platform/export.h"

namespace ZR {

class ZRBroker;
class ZRProxy;
class ZRValue;

/// Reaches the preferences service, the module "ZRPreferences". Any thread; not
/// meant for the control cycle.
class PLATFORM_API ZRPreferencesProxy {
 public:
  /// On a proxy of the service, or on the broker that has it. Throws `ZRException`
  /// when it is another module's, or not there; an empty broker is not there.
  explicit ZRPreferencesProxy(boost::shared_ptr<ZRProxy> service);
  explicit ZRPreferencesProxy(const boost::shared_ptr<ZRBroker>& broker);

  /// Has the service write `tree` to the preference file `fileName`. What `flag`
  /// means is the framework's matter. Throws `ZRException` when it was not
  /// written; the file is then as it was. The proxy must live until the call has
  /// returned.
  void writePrefFile(const std::string& fileName, const ZRValue& tree, const bool& flag);

 private:
  boost::shared_ptr<ZRProxy> service_;
};

}  // namespace ZR
