#include "host/server/motionfolder.h"

#include <filesystem>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/base/textfile.h"
#include "host/base/usererror.h"
#include "host/input/document.h"

namespace host {

bool isMotionName(const std::string& name) {
  const std::string ending = std::filesystem::path(name).extension();
  return ending == ".yaml" || ending == ".yml" || ending == ".json";
}

Json MotionFolder::list() const {
  constexpr std::size_t most = 1000;
  Json motions = Json::array();
  for (const std::string& name : folder_.names()) {
    const auto size = isMotionName(name) ? folder_.sizeOf(name) : std::nullopt;
    if (size && motions.size() < most) {
      motions.push_back({{"name", name}, {"size", *size}});
    }
  }
  return motions;
}

bool MotionFolder::has(const std::string& path) const {
  return folder_.sizeOf(path).has_value();
}

std::string MotionFolder::read(const std::string& path) const {
  auto text = folder_.read(path, Document::maxBytes);
  if (!text) {
    throw UserError(path, {}, "is no file in the folder of --motions that can be read");
  }
  return withoutByteOrderMark(std::move(*text));
}

}  // namespace host
