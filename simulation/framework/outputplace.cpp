#include "simulation/framework/outputplace.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "simulation/machine.h"

namespace simulation {
namespace {

Descriptor openFolder(int from, const char* name) {
  Descriptor folder(openat(from, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder.isOpen()) {
    refuseOutput(std::strerror(errno));
  }
  return folder;
}

bool isOursOrRoots(const struct stat& file) {
  return file.st_uid == 0 || file.st_uid == geteuid();
}

bool isTrusted(const Descriptor& folder, const struct stat& link) {
  struct stat around {};
  return isOursOrRoots(link) && fstat(folder.number(), &around) == 0 && isOursOrRoots(around) &&
         (around.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// A link in these folders leads to an open file, whatever its text says.
bool isFolderOfDescriptors(const Descriptor& folder, const std::string& name) {
  struct statfs system {};
  return name.find_first_not_of("0123456789") == std::string::npos &&
         fstatfs(folder.number(), &system) == 0 && system.f_type == PROC_SUPER_MAGIC;
}

std::string targetOf(const Descriptor& folder, const std::string& name) {
  char target[PATH_MAX];
  const ssize_t length = readlinkat(folder.number(), name.c_str(), target, sizeof target);
  if (length < 0) {
    refuseOutput(std::strerror(errno));
  }
  return {target, static_cast<std::size_t>(length)};
}

Descriptor beginOf(const std::string& path) {
  return openFolder(AT_FDCWD, !path.empty() && path[0] == '/' ? "/" : ".");
}

/// Takes the first name off a path; true when it was the last one.
bool takeName(std::string& path, std::string& name) {
  path.erase(0, path.find_first_not_of('/'));
  const std::size_t slash = path.find('/');
  name = path.substr(0, slash);
  path.erase(0, slash);
  if (name.empty()) {
    refuseOutput(std::strerror(EISDIR));
  }
  return slash == std::string::npos;
}

}  // namespace

OutputPlace placeOf(const std::string& path) {
  constexpr int mostLinks = 40;
  OutputPlace place;
  place.folder = beginOf(path);
  std::string rest = path;
  for (int links = 0;;) {
    const bool isLast = takeName(rest, place.name);
    place.exists = fstatat(place.folder.number(), place.name.c_str(), &place.present,
                           AT_SYMLINK_NOFOLLOW) == 0;
    if (!place.exists && (errno != ENOENT || !isLast)) {
      refuseOutput(std::strerror(errno));
    }
    if (place.exists && S_ISLNK(place.present.st_mode)) {
      place.isDescriptor = isFolderOfDescriptors(place.folder, place.name);
      if (isLast && place.isDescriptor) {
        return place;
      }
      if (++links > mostLinks) {
        refuseOutput(std::strerror(ELOOP));
      }
      if (!isTrusted(place.folder, place.present)) {
        refuseOutput(
            "the symbolic link '" + place.name +
            "' on its path can be changed by another user; use the path that it points to");
      }
      rest.insert(0, targetOf(place.folder, place.name));
      if (rest[0] == '/') {
        place.folder = beginOf(rest);
      }
    } else if (isLast) {
      return place;
    } else {
      place.folder = openFolder(place.folder.number(), place.name.c_str());
    }
  }
}

void refuseOutput(const std::string& why) {
  throw Error("cannot be written: " + why);
}

}  // namespace simulation
