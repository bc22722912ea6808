// The service that writes preference files. This platform has no such service, and its
// pool has no preferences. So it must throw: if it returned without having written, the
// settings of a user would be lost.

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
