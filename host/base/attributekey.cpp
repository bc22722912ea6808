#include "host/base/attributekey.h"

namespace host {

std::string fullKey(const std::string& name) {
  const bool isFull = name.rfind(devicePrefix, 0) == 0 || name.rfind(subDevicePrefix, 0) == 0;
  return isFull ? name : subDevicePrefix + name;
}

}  // namespace host
