#pragma once

#include <functional>
#include <optional>
#include <string>

namespace host {

/// What a user calls a motion.
struct MotionName {
  std::string path;
  /// One of the named motions in it.
  std::optional<std::string> motion;
};

/// "FILE:NAME" where there is such a file, and no file of the whole name; `exists` says which
/// files there are.
MotionName splitMotionName(const std::string& given,
                           const std::function<bool(const std::string& path)>& exists);

/// Whether there is something of this name on the disk.
bool isOnDisk(const std::string& path);

}  // namespace host
