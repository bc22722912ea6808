#include "host/input/motionname.h"

#include <filesystem>

namespace host {

MotionName splitMotionName(const std::string& given,
                           const std::function<bool(const std::string& path)>& exists) {
  std::size_t colon = exists(given) ? std::string::npos : given.rfind(':');
  while (colon != std::string::npos && colon > 0) {
    if (exists(given.substr(0, colon))) {
      return {given.substr(0, colon), given.substr(colon + 1)};
    }
    colon = given.rfind(':', colon - 1);
  }
  return {given, std::nullopt};
}

bool isOnDisk(const std::string& path) {
  std::error_code ignored;
  return std::filesystem::exists(path, ignored);
}

}  // namespace host
