#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "platform/export.h"

namespace simulation {

/// True for the names that parts of files bear while they are written.
PLATFORM_API bool isPartName(const std::string& name);

/// A file that appears whole or not at all: its part has no name until `commit`, or where the
/// file system knows no files without a name, one that nobody can foresee. A part that a killed
/// process left there is removed by its owner's next file of the same name.
///
/// The file belongs to this user, is permitted what the umask leaves and a file that it replaces
/// permitted, and never carries set-id bits. Symbolic links are followed when nobody but root or
/// this user can have laid them. Pipes, devices and this process's open files (/dev/stdout) are
/// written to as they are; a pipe of another user is refused.
class PLATFORM_API OutputFile {
 public:
  /// Throws `Error`, which says why but not where, when it cannot be written there.
  explicit OutputFile(const std::string& path);
  /// Without `commit`, the part is removed and the file at the path stays as it was.
  ~OutputFile();

  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Throws `std::system_error`, with the path in its text.
  void write(const char* bytes, std::size_t count);
  void commit();

 private:
  struct Part;

  [[noreturn]] void fail() const;

  const std::string path_;
  std::unique_ptr<Part> part_;
};

}  // namespace simulation
