#include "host/server/meshes.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <set>

#include "host/base/visible.h"
#include "host/server/refused.h"

namespace host {
namespace {

std::set<std::string> packagesNamedIn(const std::string& urdf) {
  static const std::string prefix = "package://";
  std::set<std::string> packages;
  for (std::size_t found = urdf.find(prefix); found != std::string::npos;) {
    // Some write package:///PACKAGE.
    const std::size_t begin =
        std::min(urdf.find_first_not_of('/', found + prefix.size()), urdf.size());
    const std::size_t end = urdf.find_first_of("/\"'<>", begin);
    packages.insert(urdf.substr(begin, end - begin));
    found = urdf.find(prefix, begin);
  }
  return packages;
}

std::string typeOf(const std::string& path) {
  std::string extension = path.substr(std::min(path.rfind('.'), path.size()));
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return extension == ".stl" ? "model/stl" : "application/octet-stream";
}

}  // namespace

Meshes::Meshes(const std::vector<std::string>& folders, const std::string* urdf) {
  for (const std::string& folder : folders) {
    folders_.emplace_back(folder);
  }
  for (const std::string& package : packagesNamedIn(urdf == nullptr ? "" : *urdf)) {
    if (std::any_of(folders_.begin(), folders_.end(),
                    [&](const HeldFolder& folder) { return folder.hasFolder(package); })) {
      packages_.push_back(package);
    }
  }
}

Answer Meshes::answer(const std::string& path) const {
  constexpr std::size_t mostBytes = std::size_t{32} << 20;
  for (const HeldFolder& folder : folders_) {
    if (auto content = folder.read(path, mostBytes)) {
      Answer answer;
      answer.contentType = typeOf(path);
      answer.body = std::move(*content);
      return answer;
    }
  }
  throw Refused({404, "unknown", "",
                 fmt::format("there is no '{}' in the folders of --package-path", visible(path)),
                 Json::object()});
}

}  // namespace host
