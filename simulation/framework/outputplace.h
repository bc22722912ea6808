#pragma once

#include <sys/stat.h>

#include <string>

#include "simulation/framework/descriptor.h"

namespace simulation {

/// Where an output goes: a folder, held open, and a name in it that is no symbolic link.
struct OutputPlace {
  Descriptor folder;
  std::string name;
  /// What bears the name now.
  bool exists = false;
  struct stat present {};
  /// The name is the number of an open file of a process, as in /dev/stdout.
  bool isDescriptor = false;
};

/// Follows a path from folder to folder. A symbolic link on it counts when nobody but root or
/// this user can have laid it: it is theirs, and so is its folder, to which no other may write.
/// Throws `Error` with the reason, without the path.
OutputPlace placeOf(const std::string& path);

}  // namespace simulation
