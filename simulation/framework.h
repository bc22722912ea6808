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
/// The service writes a tree as XML into a directory, which it creates when it is missing. The file
/// appears as a whole: it is written elsewhere, flushed and renamed, so a reader finds the old or
/// the new file, however the process ends.
class PLATFORM_API Framework {
 public:
  /// A broker whose preferences service writes into `preferenceDirectory`.
  explicit Framework(const std::string& preferenceDirectory);

  [[nodiscard]] const boost::shared_ptr<ZR::ZRBroker>& broker() const { return broker_; }

  /// While it is not reachable, the broker throws instead of returning a proxy.
  void setReachable(bool reachable);

 private:
  boost::shared_ptr<ZR::ZRBroker> broker_;
};

/// False for the names that the service refuses: empty ones, those that lead out of the preference
/// directory, and those of parts. The service also refuses symbolic links.
PLATFORM_API bool isPreferenceFileName(const std::string& fileName);

/// Reads a file that the service wrote, and returns exactly what was written. Throws
/// `ZR::ZRException`, with the path, when the file cannot be read or is of another kind.
PLATFORM_API ZR::ZRValue readPreferenceFile(const std::string& path);

}  // namespace simulation
