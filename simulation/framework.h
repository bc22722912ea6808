#pragma once

#include <boost/shared_ptr.hpp>
#include <string>

#include "platform/export.h"
#include "platform/zr/zrbroker.h"
#include "platform/zr/zrvalue.h"

namespace simulation {

/// The framework's broker with one module, the preferences service
/// "ZRPreferences". Set-up and command threads; not for the control cycle.
///
/// The service writes a tree as XML into a directory, which it creates when it is
/// missing. The file appears whole: it is written beside its place, flushed and
/// renamed, so that whoever reads finds the old or the new one, however the process
/// ends.
class PLATFORM_API Framework {
 public:
  /// A broker whose preferences service writes into `preferenceDirectory`.
  explicit Framework(const std::string& preferenceDirectory);

  [[nodiscard]] const boost::shared_ptr<ZR::ZRBroker>& broker() const { return broker_; }

  /// While it is not reachable, the broker hands out no proxy: it throws.
  void setReachable(bool reachable);

 private:
  boost::shared_ptr<ZR::ZRBroker> broker_;
};

/// False when a name is empty, would lead out of the preference directory, or is
/// that of a part file: the service refuses it. It refuses a symbolic link, too.
PLATFORM_API bool isPreferenceFileName(const std::string& fileName);

/// Reads a file that the service wrote: exactly what was put in. Throws
/// `ZR::ZRException`, with the path, when it cannot be read or is no such file.
PLATFORM_API ZR::ZRValue readPreferenceFile(const std::string& path);

}  // namespace simulation
