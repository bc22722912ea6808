// The service that writes preference files: this platform has none, and its pool no
// preferences. It owes an exception to whoever asks all the same: a service that
// returns without having written loses what a user has set.

#include <utility>

#include "platform/zr/zrexception.h"
#include "platform/zr/zrpreferencesproxy.h"
#include "platform/zr/zrproxy.h"

namespace ZR {

ZRPreferencesProxy::ZRPreferencesProxy(boost::shared_ptr<ZRProxy> service)
    : service_(std::move(service)) {}

void ZRPreferencesProxy::writePrefFile(const std::string& fileName, const ZRValue& /*tree*/,
                                       const bool& /*flag*/) {
  throw ZRException("there is no preferences service to write " + fileName);
}

}  // namespace ZR
