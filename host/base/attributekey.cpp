#include "host/base/attributekey.h"

namespace host {

std::string fullKey(const std::string& name) {
  const bool isFull = name.rfind(devicePrefix, 0) == 0 || name.rfind(subDevicePrefix, 0) == 0;
  return isFull ? name : subDevicePrefix + name;
}

std::string bareKey(const std::string& key) {
  constexpr std::size_t length = sizeof subDevicePrefix - 1;
  if (key.rfind(subDevicePrefix, 0) != 0 || fullKey(key.substr(length)) != key) {
    return key;
  }
  return key.substr(length);
}

}  // namespace host
