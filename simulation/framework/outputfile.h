#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "platform/export.h"

namespace simulation {

/// True for the names of parts, which files have while they are written.
PLATFORM_API bool isPartName(const std::string& name);

/// A file that appears whole or not at all, unless it is told to appear early. What is written goes
/// to a part, which has no name until `commit`; where the file system does not support files
/// without a name, it has an unpredictable one. The next file with the same name removes a part
/// that a killed process of the same user left.
///
/// The file belongs to this user. Its mode is that of the file which it replaces, less what the
/// umask takes away, and never has set-id bits. Symbolic links are followed when only root or this
/// user can have created them. Pipes, devices and open files of this process (/dev/stdout) are
/// written to directly; a pipe of another user is refused.
class PLATFORM_API OutputFile {
 public:
  /// What becomes of a file that has the path already.
  enum class Present {
    replaced,
    kept,  ///< and this one is not written: it fails
  };

  /// Throws `Error`, with the reason and without the path, when the file cannot be written.
  explicit OutputFile(const std::string& path, Present present = Present::replaced);
  /// Without `commit` it removes the part, and the file at the path stays as it was.
  ~OutputFile();

  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Throws `std::system_error`, with the path in its text.
  void write(const char* bytes, std::size_t count);
  void commit();
  /// Puts what is written so far at the path, where the file goes on to grow: an end of the process
  /// leaves it there. Throws `std::system_error`.
  void appear();

 private:
  struct Part;

  [[noreturn]] void fail() const;

  const std::string path_;
  std::unique_ptr<Part> part_;
};

}  // namespace simulation
