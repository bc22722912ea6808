#pragma once

#include <cstddef>
#include <string>

#include "platform/export.h"

namespace simulation {

/// A file that appears whole or not at all: it is written as FILE.torvex-part
/// beside its place and takes it on `commit`. A part that a killed process left
/// behind is written over; one that another process is writing is not.
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
  [[noreturn]] void fail() const;

  const std::string path_;
  const std::string partPath_;
  int descriptor_ = -1;
};

}  // namespace simulation
