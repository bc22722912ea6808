#include "host/base/heldfolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "host/base/usererror.h"

namespace host {
namespace {

using simulation::Descriptor;

constexpr int folderFlags = O_RDONLY | O_DIRECTORY;
/// Waits for no other end of a pipe.
constexpr int fileFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY;

std::optional<std::size_t> regularSize(const Descriptor& file) {
  struct stat status {};
  if (!file.isOpen() || fstat(file.number(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return std::nullopt;
  }
  return static_cast<std::size_t>(status.st_size);
}

}  // namespace

HeldFolder::HeldFolder(const std::string& path)
    : folder_(open(path.c_str(), folderFlags | O_CLOEXEC)) {
  if (!folder_.isOpen()) {
    throw UserError(path, {}, fmt::format("cannot be read as a folder: {}", std::strerror(errno)));
  }
}

Descriptor HeldFolder::openBelow(const std::string& path, int flags) const {
  Descriptor at(-1);
  for (std::size_t begin = 0; begin <= path.size();) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    const std::string part = path.substr(begin, end - begin);
    if (part.empty() || part == "." || part == "..") {
      return Descriptor();
    }
    const int from = at.isOpen() ? at.number() : folder_.number();
    const int how = (end == path.size() ? flags : folderFlags) | O_NOFOLLOW | O_CLOEXEC;
    Descriptor next(openat(from, part.c_str(), how));
    if (!next.isOpen()) {
      return next;
    }
    at = std::move(next);
    begin = end + 1;
  }
  return at;
}

bool HeldFolder::hasFolder(const std::string& path) const {
  return openBelow(path, folderFlags).isOpen();
}

std::optional<std::size_t> HeldFolder::sizeOf(const std::string& path) const {
  return regularSize(openBelow(path, fileFlags));
}

std::optional<std::string> HeldFolder::read(const std::string& path, std::size_t mostBytes) const {
  const Descriptor file = openBelow(path, fileFlags);
  const std::optional<std::size_t> size = regularSize(file);
  if (!size || *size > mostBytes) {
    return std::nullopt;
  }
  std::string text;
  text.reserve(*size);
  std::array<char, std::size_t{1} << 16> block{};
  ssize_t got = 0;
  while ((got = ::read(file.number(), block.data(), block.size())) > 0) {
    text.append(block.data(), static_cast<std::size_t>(got));
    if (text.size() > mostBytes) {
      return std::nullopt;
    }
  }
  return got < 0 ? std::nullopt : std::optional(std::move(text));
}

std::vector<std::string> HeldFolder::names() const {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(
      fdopendir(openat(folder_.number(), ".", folderFlags | O_CLOEXEC)), closedir);
  while (const dirent* const entry = entries ? readdir(entries.get()) : nullptr) {
    names.emplace_back(static_cast<const char*>(entry->d_name));
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace host
