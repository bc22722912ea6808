#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "simulation/framework/descriptor.h"

namespace host {

/// A folder that is held open, and what lies below it. Nothing leads out: no symbolic link is
/// followed, and a path has neither empty parts nor "." or "..". Any thread.
class HeldFolder {
 public:
  /// The path itself may lead through links. Throws `UserError` when it is no folder that can be
  /// read.
  explicit HeldFolder(const std::string& path);

  [[nodiscard]] bool hasFolder(const std::string& path) const;
  /// Of a regular file; none where there is none.
  [[nodiscard]] std::optional<std::size_t> sizeOf(const std::string& path) const;
  /// The content of a regular file of at most so many bytes; none where there is none.
  [[nodiscard]] std::optional<std::string> read(const std::string& path,
                                                std::size_t mostBytes) const;
  /// The names in the folder itself, in their order.
  [[nodiscard]] std::vector<std::string> names() const;

 private:
  [[nodiscard]] simulation::Descriptor openBelow(const std::string& path, int flags) const;

  simulation::Descriptor folder_;
};

}  // namespace host
