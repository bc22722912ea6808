#pragma once

#include <sys/stat.h>

#include <string>

#include "platform/export.h"
#include "simulation/framework/descriptor.h"

namespace simulation {

/// Where an output goes: a folder, which is held open, and a name in it that is no symbolic link.
struct OutputPlace {
  Descriptor folder;
  std::string name;
  /// What exists with this name now.
  bool exists = false;
  struct stat present {};
  /// Whether the name is the number of an open file of a process, as in /dev/stdout.
  bool isDescriptor = false;
};

/// Follows a path from folder to folder. A symbolic link is followed when only root or this user
/// can have created it: link and folder belong to one of them, and no other user may write to the
/// folder. Throws `Error` with the reason, without the path.
PLATFORM_API OutputPlace placeOf(const std::string& path);

/// Throws the `Error` that says why an output cannot be written.
[[noreturn]] void refuseOutput(const std::string& why);

}  // namespace simulation
