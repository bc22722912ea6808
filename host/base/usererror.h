#pragma once

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace host {

/// A source location, counted from 1; 0 where only the file is known.
struct SourceLocation {
  std::size_t line = 0;
  std::size_t column = 0;
};

/// A source location in a file.
struct FileLocation {
  std::string path;
  SourceLocation location;
};

/// "file:line:column", or the file alone.
std::string shown(const FileLocation& where);

/// Bad input. `what()` has a line for each error,
/// "file:line:column: error: what is wrong and what would be right", and of each file the
/// first `mostShown` of them, as `visible` shows them.
class UserError : public std::runtime_error {
 public:
  struct Entry {
    std::string path;
    SourceLocation location;
    std::string text;
  };

  static constexpr std::size_t mostShown = 20;

  UserError(const std::string& path, SourceLocation location, const std::string& what);
  UserError(const FileLocation& where, const std::string& what)
      : UserError(where.path, where.location, what) {}
  /// At least one entry; those of a file lie together. When `more`, there may be others that
  /// nobody has looked for.
  UserError(std::vector<Entry> entries, bool more);

  [[nodiscard]] const std::vector<Entry>& entries() const { return *entries_; }

 private:
  std::shared_ptr<const std::vector<Entry>> entries_;
};

}  // namespace host
