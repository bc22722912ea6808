#include "host/server/meshes.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <pugixml.hpp>

#include "host/base/visible.h"
#include "host/server/refused.h"

namespace host {
namespace {

constexpr std::size_t mostBytes = std::size_t{32} << 20;

/// PACKAGE/PATH of each package://PACKAGE/PATH, however many slashes lead it.
std::set<std::string> meshesNamedIn(const std::string& urdf) {
  static const std::string prefix = "package://";
  std::set<std::string> meshes;
  pugi::xml_document document;
  document.load_buffer(urdf.data(), urdf.size());
  for (const pugi::xpath_node& named : document.select_nodes("//mesh/@filename")) {
    const std::string name = named.attribute().value();
    const std::size_t begin = name.find_first_not_of('/', prefix.size());
    if (name.rfind(prefix, 0) == 0 && begin != std::string::npos) {
      meshes.insert(name.substr(begin));
    }
  }
  return meshes;
}

std::string typeOf(const std::string& path) {
  std::string extension = path.substr(std::min(path.rfind('.'), path.size()));
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return extension == ".stl" ? "model/stl" : "application/octet-stream";
}

}  // namespace

Meshes::Meshes(const std::vector<std::string>& folders, const std::string* urdf)
    : named_(urdf == nullptr ? std::set<std::string>() : meshesNamedIn(*urdf)) {
  for (const std::string& folder : folders) {
    folders_.emplace_back(folder);
  }
}

std::vector<std::string> Meshes::present() const {
  std::vector<std::string> present;
  std::copy_if(
      named_.begin(), named_.end(), std::back_inserter(present), [this](const std::string& path) {
        return std::any_of(folders_.begin(), folders_.end(), [&](const HeldFolder& folder) {
          return folder.sizeOf(path).value_or(mostBytes + 1) <= mostBytes;
        });
      });
  return present;
}

Answer Meshes::answer(const std::string& path) const {
  for (const HeldFolder& folder : folders_) {
    if (auto content = folder.read(path, mostBytes)) {
      Answer answer;
      answer.contentType = typeOf(path);
      answer.body = std::move(*content);
      return answer;
    }
  }
  throw Refused({404, "unknown",
                 fmt::format("there is no '{}' in the folders of --package-path", visible(path))});
}

}  // namespace host
