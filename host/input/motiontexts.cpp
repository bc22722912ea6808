#include "host/input/motiontexts.h"

#include <filesystem>

#include "host/base/textfile.h"
#include "host/input/document.h"

namespace host {

bool MotionsOnDisk::has(const std::string& path) const {
  std::error_code ignored;
  return std::filesystem::exists(path, ignored);
}

std::string MotionsOnDisk::read(const std::string& path) const {
  return readFile(path, Document::maxBytes);
}

bool MotionsOfClient::has(const std::string& path) const {
  return texts_.count(path) != 0;
}

std::string MotionsOfClient::read(const std::string& path) const {
  const auto found = texts_.find(path);
  if (found != texts_.end()) {
    return found->second;
  }
  if (missing_.empty()) {
    missing_ = path;
  }
  throw UserError(path, {}, "was not sent with the request");
}

MotionName splitMotionName(const std::string& given, const MotionTexts& texts) {
  std::size_t colon = texts.has(given) ? std::string::npos : given.rfind(':');
  while (colon != std::string::npos && colon > 0) {
    if (texts.has(given.substr(0, colon))) {
      return {given.substr(0, colon), given.substr(colon + 1)};
    }
    colon = given.rfind(':', colon - 1);
  }
  return {given, std::nullopt};
}

}  // namespace host
