#include "host/server/motionfolder.h"

#include <filesystem>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/base/textfile.h"
#include "host/base/usererror.h"
#include "host/input/document.h"

namespace host {

Json MotionFolder::list() const {
  constexpr std::size_t most = 1000;
  Json motions = Json::array();
  for (const std::string& name : folder_.names()) {
    const std::string ending = std::filesystem::path(name).extension();
    const bool isMotion = ending == ".yaml" || ending == ".yml" || ending == ".json";
    const auto size = isMotion ? folder_.sizeOf(name) : std::nullopt;
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
